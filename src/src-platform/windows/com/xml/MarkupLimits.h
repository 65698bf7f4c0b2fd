#pragma once

#include <cstdint>
#include <string_view>

#include "windows/com/xml/ParseError.h"

namespace windows::com::xml {

inline constexpr std::uint32_t maxAttributes = 64;  // of one tag, namespace declarations included
inline constexpr std::uint32_t maxDepth = 32;       // of elements in each other

// Looks in one pass over the markup for what no option of the parser bounds: a DOCTYPE, whose entities can
// grow without end, more than maxAttributes attributes in one tag, which the parser compares in pairs, and
// elements deeper than maxDepth. Returns the first of these, or an unset error.
//
// As far as source is well-formed, what is found is exact; behind its first fault the parser stops anyway.
ParseError findForbiddenMarkup(std::string_view source);

}  // namespace windows::com::xml
