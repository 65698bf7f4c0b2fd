#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

#include "classifier/Token.h"

namespace halvern::classifier {

// A set of byte values that is asked once for each byte of a text.
class ByteSet {
public:
    constexpr explicit ByteSet(std::string_view members) {
        for (const char member : members) {
            _contains[static_cast<unsigned char>(member)] = true;
        }
    }

    constexpr bool contains(char byte) const { return _contains[static_cast<unsigned char>(byte)]; }

private:
    std::array<bool, 256> _contains{};
};

// Maps A to Z onto a to z and leaves every other byte alone, whatever the locale.
constexpr char foldCase(char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

// A copy of a text, in lower case if so wished, behind whose last byte a Token can be read.
class ReadableText {
public:
    enum class Case { KEPT, FOLDED };

    ReadableText(std::string_view text, Case wish) : _size(text.size()) {
        if (_size + Token::SIZE > sizeof(_small)) {
            _large.reset(new char[_size + Token::SIZE]);
        }
        char* const bytes = _large != nullptr ? _large.get() : _small;
        if (wish == Case::FOLDED) {
            std::transform(text.begin(), text.end(), bytes, [](char byte) { return foldCase(byte); });
        } else {
            std::copy(text.begin(), text.end(), bytes);
        }
        std::memset(bytes + _size, 0, Token::SIZE);
    }

    std::string_view view() const { return {_large != nullptr ? _large.get() : _small, _size}; }

private:
    std::size_t _size;
    std::unique_ptr<char[]> _large;  // null for a text that fits into _small
    char _small[1024];
};

// Calls visit(word) for each longest run of bytes that aren't delimiters, from first to last.
template <class Visit>
void forEachWord(std::string_view text, const ByteSet& delimiters, Visit visit) {
    std::size_t begin = 0;
    while (true) {
        while (begin < text.size() && delimiters.contains(text[begin])) {
            ++begin;
        }
        if (begin == text.size()) {
            return;
        }
        std::size_t end = begin + 1;
        while (end < text.size() && !delimiters.contains(text[end])) {
            ++end;
        }
        visit(text.substr(begin, end - begin));
        begin = end;
    }
}

}  // namespace halvern::classifier
