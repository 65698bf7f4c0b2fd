#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

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

inline std::string foldCase(std::string_view text) {
    std::string folded(text);
    for (char& byte : folded) {
        byte = foldCase(byte);
    }
    return folded;
}

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
