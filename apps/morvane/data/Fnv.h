#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace halvern::morvane::client {

// The hash FNV-1a of Fowler, Noll and Vo in 64 bits. Good against accidents, not against forgery.
class Fnv {
public:
    void add(std::string_view bytes) {
        for (const char byte : bytes) {
            add(byte);
        }
    }
    void add(char byte) { _hash = (_hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3u; }

    // 16 hexadecimal digits.
    std::string text() const {
        char digits[17];
        std::snprintf(digits, sizeof(digits), "%016llx", static_cast<unsigned long long>(_hash));
        return digits;
    }

private:
    std::uint64_t _hash = 0xcbf29ce484222325u;
};

}  // namespace halvern::morvane::client
