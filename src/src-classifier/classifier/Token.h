#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "debug/Assertion.h"

namespace halvern::classifier {

// A token of a text as four words: its bytes, zeros, and its length in the last byte. So tokens are cut out,
// compared and hashed without a step that depends on their length, which no processor can foresee.
class Token {
public:
    // As long as the longest feature.
    static constexpr std::size_t MAX_LENGTH = 31;
    static constexpr std::size_t SIZE = 32;

    Token() = default;
    // Requires a text of MAX_LENGTH bytes at the most.
    explicit Token(std::string_view text) {
        CHECK(text.size() <= MAX_LENGTH, "A token is longer than any feature");
        if (!text.empty()) {
            std::memcpy(_words.data(), text.data(), text.size());
        }
        setLength(text.size());
    }
    // Requires that SIZE bytes can be read, and a length of MAX_LENGTH at the most.
    static Token fromReadable(const char* bytes, std::size_t length) {
        static constexpr std::array<unsigned char, 2 * SIZE> KEPT = [] {
            std::array<unsigned char, 2 * SIZE> kept{};
            for (std::size_t i = 0; i < SIZE; ++i) {
                kept[i] = 0xff;
            }
            return kept;
        }();
        Token token;
        std::array<std::uint64_t, 4> mask;
        std::memcpy(token._words.data(), bytes, SIZE);
        std::memcpy(mask.data(), KEPT.data() + SIZE - length, SIZE);
        for (std::size_t i = 0; i < mask.size(); ++i) {
            token._words[i] &= mask[i];
        }
        token.setLength(length);
        return token;
    }
    // Of up to 8 bytes, the first in the lowest bits. Requires zeros in the others.
    static Token fromWord(std::uint64_t bytes, std::size_t length) {
        Token token;
        token._words[0] = bytes;
        token.setLength(length);
        return token;
    }

    bool operator==(const Token& other) const {
        std::uint64_t different = 0;
        for (std::size_t i = 0; i < _words.size(); ++i) {
            different |= _words[i] ^ other._words[i];
        }
        return different == 0;
    }

    std::size_t length() const { return _words[3] >> 56; }
    std::string_view text() const { return {reinterpret_cast<const char*>(_words.data()), length()}; }
    const std::array<std::uint64_t, 4>& words() const { return _words; }
    // The first bytes, as fromWord takes them. Requires length <= 7.
    std::uint64_t head(std::size_t length) const {
        return _words[0] & ((std::uint64_t{1} << (8 * length)) - 1);
    }

private:
    void setLength(std::size_t length) { _words[3] |= static_cast<std::uint64_t>(length) << 56; }

    std::array<std::uint64_t, 4> _words{};
};

}  // namespace halvern::classifier
