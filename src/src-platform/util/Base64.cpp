#include "util/Base64.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "util/Converter.h"

namespace util {

namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t skipped = 64;

constexpr std::array<std::uint8_t, 256> makeValues() {
    std::array<std::uint8_t, 256> values{};
    values.fill(skipped);
    for (std::size_t i = 0; i < alphabet.size(); ++i) {
        values[static_cast<unsigned char>(alphabet[i])] = static_cast<std::uint8_t>(i);
    }
    return values;
}

constexpr std::array<std::uint8_t, 256> values = makeValues();

// Takes four characters at once, as nearly all groups stand, if none of them has to be skipped.
bool takeGroup(const char* from, std::uint32_t& bits) {
    const auto value = [from](std::size_t i) -> std::uint32_t {
        return values[static_cast<unsigned char>(from[i])];
    };
    bits = value(0) << 18 | value(1) << 12 | value(2) << 6 | value(3);
    return ((value(0) | value(1) | value(2) | value(3)) & skipped) == 0;
}

// Writes the first of the three bytes in bits.
char* writeBytes(char* to, std::uint32_t bits, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        *to++ = static_cast<char>(bits >> (16 - 8 * i) & 0xFF);
    }
    return to;
}

}  // namespace

void Base64EncoderImpl::encode(const Bytes& bytes, std::string& out) const {
    if (bytes.empty()) {
        return;
    }
    const std::size_t length = Converter::toSigned32(bytes.size());
    out.resize(Converter::toSigned32((length + 2) / 3 * 4));
    char* to = out.data();
    for (std::size_t i = 0; i < length; i += 3) {
        const std::size_t inGroup = std::min<std::size_t>(3, length - i);
        std::uint32_t bits = 0;
        for (std::size_t j = 0; j < 3; ++j) {
            bits = bits << 8 | (j < inGroup ? static_cast<unsigned char>(bytes[i + j]) : 0);
        }
        for (std::size_t j = 0; j < 4; ++j) {
            *to++ = j <= inGroup ? alphabet[bits >> (18 - 6 * j) & 63] : '=';
        }
    }
}

void Base64DecoderImpl::decode(std::string_view text, Bytes& out) const {
    if (text.empty()) {
        return;
    }
    // Four characters give three bytes.
    out.resize((static_cast<std::size_t>(Converter::toSigned32(text.size())) + 3) / 4 * 3);
    const char* from = text.data();
    const char* const end = from + text.size();
    char* to = out.data();
    while (from != end && *from != 0) {
        std::uint32_t bits = 0;
        if (end - from >= 4 && takeGroup(from, bits)) {
            from += 4;
            to = writeBytes(to, bits, 3);
            continue;
        }
        std::size_t taken = 0;
        while (taken < 4 && from != end) {
            const std::uint8_t value = values[static_cast<unsigned char>(*from++)];
            if (value != skipped) {
                bits = bits << 6 | value;
                ++taken;
            }
        }
        to = writeBytes(to, bits << 6 * (4 - taken), taken * 6 / 8);
    }
    out.resize(static_cast<std::size_t>(to - out.data()));
}

}  // namespace util
