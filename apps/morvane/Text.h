#pragma once

#include <string>

namespace halvern::morvane::client {

// The text without white space in front and at the end.
inline std::string trimmed(const std::string& text) {
    constexpr const char* BLANKS = " \t\r\n";
    const std::size_t begin = text.find_first_not_of(BLANKS);
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(BLANKS) + 1 - begin);
}

}  // namespace halvern::morvane::client
