#pragma once

#include <cstddef>
#include <sstream>
#include <string>

#include "util/Bytes.h"

namespace support {

// "05 00 ff" as the bytes that it names.
inline util::Bytes fromHex(const std::string& text) {
    util::Bytes bytes;
    std::istringstream in(text);
    for (std::string byte; in >> byte;) {
        bytes.push_back(static_cast<char>(std::stoi(byte, nullptr, 16)));
    }
    return bytes;
}

// The other way round, for comparisons that show their difference.
inline std::string toHex(const char* bytes, std::size_t size) {
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        const char* const digits = "0123456789abcdef";
        const unsigned char byte = static_cast<unsigned char>(bytes[i]);
        text += i == 0 ? "" : " ";
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

inline std::string toHex(const util::Bytes& bytes) { return toHex(bytes.data(), bytes.size()); }

}  // namespace support
