#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

#include "classifier/Token.h"

namespace halvern::classifier {

// A set of byte values.
template <std::size_t Size>
class ByteSet {
public:
    constexpr explicit ByteSet(const char (&members)[Size]) {
        std::copy_n(members, Size - 1, _members.begin());
    }

    constexpr bool contains(char byte) const {
        bool found = false;
        for (const char member : _members) {
            found |= byte == member;
        }
        return found;
    }

    // A bit for each of 64 bytes, the first in the lowest: whether the byte is in the set.
    std::uint64_t bitsOf(const char* bytes) const {
        std::uint64_t bits = 0;
        for (std::size_t begin = 0; begin < 64; begin += sizeof(Bytes)) {
            Bytes part;
            std::memcpy(&part, bytes + begin, sizeof(part));
            Bytes isMember{};
            for (const char member : _members) {
                isMember |= part == member;
            }
            for (std::size_t i = 0; i < sizeof(Bytes) / 8; ++i) {
                // Of each byte, which is all ones or zeros, one bit stays, and the product moves these
                // together.
                constexpr std::uint64_t LOWEST = 0x0101010101010101;
                constexpr std::uint64_t TOGETHER = 0x0102040810204080;
                const std::uint64_t eight = reinterpret_cast<Words>(isMember)[i] & LOWEST;
                bits |= eight * TOGETHER >> 56 << (begin + 8 * i);
            }
        }
        return bits;
    }

private:
    using Bytes [[gnu::vector_size(16)]] = char;
    using Words [[gnu::vector_size(16)]] = std::uint64_t;

    std::array<char, Size - 1> _members{};
};

// Maps A to Z onto a to z and leaves every other byte alone, whatever the locale.
constexpr char foldCase(char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

// A copy of a text, in lower case if so wished, with bytes behind it that may be read too.
class ReadableText {
public:
    enum class Case { KEPT, FOLDED };
    // Zeros behind the text, so that a Token and 64 bytes may be read from anywhere in it, and from its end.
    static constexpr std::size_t paddingSize = 64;

    ReadableText(std::string_view text, Case wish) : _size(text.size()) {
        if (_size + paddingSize > sizeof(_small)) {
            _large.reset(new char[_size + paddingSize]);
        }
        char* const bytes = _large != nullptr ? _large.get() : _small;
        if (wish == Case::FOLDED) {
            std::transform(text.begin(), text.end(), bytes, [](char byte) { return foldCase(byte); });
        } else {
            std::copy(text.begin(), text.end(), bytes);
        }
        std::memset(bytes + _size, 0, paddingSize);
    }

    const char* begin() const { return _large != nullptr ? _large.get() : _small; }
    std::size_t size() const { return _size; }

private:
    std::size_t _size;
    std::unique_ptr<char[]> _large;  // null for a text that fits into _small
    char _small[4096];
};

// Calls visit(word) for each longest run of bytes that aren't delimiters, from first to last. Delimiters are
// found for 64 bytes at once, as no processor foresees where the next word ends.
template <class Delimiters, class Visit>
void forEachWord(const ReadableText& text, const Delimiters& delimiters, Visit visit) {
    const char* word = nullptr;  // the one that has begun and not yet ended
    std::uint64_t wasWord = 0;   // 1 if the last byte was of a word
    // Up to the end and including it, where a last word ends.
    for (std::size_t next = 0; next <= text.size(); next += 64) {
        const std::size_t rest = text.size() - next;
        const std::uint64_t isText = rest < 64 ? (std::uint64_t{1} << rest) - 1 : ~std::uint64_t{0};
        const std::uint64_t isWord = isText & ~delimiters.bitsOf(text.begin() + next);
        for (std::uint64_t edges = isWord ^ (isWord << 1 | wasWord); edges != 0; edges &= edges - 1) {
            const char* const edge = text.begin() + next + std::countr_zero(edges);
            if (word == nullptr) {
                word = edge;
            } else {
                visit(std::string_view(word, static_cast<std::size_t>(edge - word)));
                word = nullptr;
            }
        }
        wasWord = isWord >> 63;
    }
}

}  // namespace halvern::classifier
