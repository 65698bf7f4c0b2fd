#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace util {

struct Utf8Character {
    std::uint32_t character;
    std::size_t length;  // in bytes; 0 if no valid sequence stands there
};

// The character at the front of the bytes, by the table of well-formed sequences in RFC 3629, section 4:
// overlong forms, surrogates and numbers above U+10FFFF are no sequences. Requires at least one byte.
Utf8Character firstUtf8Character(std::string_view bytes);

// Whether the bytes are nothing but such characters.
bool isUtf8(std::string_view bytes);

}  // namespace util
