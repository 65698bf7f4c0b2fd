#pragma once

#include <string>
#include <string_view>

// The library works on UTF-8, the program on bytes that each are one character of ISO-8859-1.
namespace windows::com::xml {

// Bytes to UTF-8, up to the first zero byte.
std::string widen(std::string_view bytes);

// UTF-8 to bytes, appended to out. Throws util::StringHelperException for a character above U+00FF.
void appendNarrowed(std::string& out, std::string_view utf8);
std::string narrow(std::string_view utf8);

}  // namespace windows::com::xml
