#pragma once

#include <string>
#include <string_view>

namespace util {

// The text with '&', '"', '<' and '>' as entities, fit for element content and for attribute values in double
// quotes. All other bytes, the apostrophe and those above 127 included, stay as they are.
std::string escapeXml(std::string_view text);

}  // namespace util
