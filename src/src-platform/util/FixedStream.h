#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "debug/Assertion.h"
#include "platform/errorresources/SystemErrorText.h"

namespace util {

// A text of at most SIZE characters in a buffer of its own: the tool that builds messages.
//
// It never touches the heap and cannot fail. What does not fit is cut off silently, so that no text from
// outside can overrun a message. Input ends at its first zero byte.
template <std::size_t SIZE>
class FixedStream {
public:
    FixedStream() = default;

    FixedStream& operator<<(const char* text) {
        checkInvariants();
        const std::size_t length = strnlen(text, SIZE - _pos);
        std::memcpy(_buf + _pos, text, length);
        advance(length);
        return *this;
    }

    template <std::integral T>
    FixedStream& operator<<(T value) {
        static_assert(!std::same_as<T, char> && !std::same_as<T, bool>, "Write characters as strings");
        if constexpr (std::is_signed_v<T>) {
            return print("%lld", static_cast<long long>(value));
        } else {
            return print("%llu", static_cast<unsigned long long>(value));
        }
    }

    FixedStream& operator<<(const void* pointer) { return print("%p", pointer); }

    // Appends what systemErrorText gives, as far as there is room.
    FixedStream& appendSystemError(std::uint32_t code,
                                   const platform::errorresources::ErrorMapper* mapper = nullptr) {
        checkInvariants();
        advance(platform::errorresources::writeSystemErrorText(_buf + _pos, SIZE - _pos + 1, code, mapper));
        return *this;
    }

    const char* str() const { return _buf; }

    // Cuts the text, or declares what was written behind it, to end at pos.
    void setPosition(std::uint64_t pos) {
        CHECK(pos <= SIZE);
        _pos = pos;
        _buf[_pos] = 0;
        checkInvariants();
    }

private:
    template <class T>
    FixedStream& print(const char* format, T value) {
        char text[32];
        std::snprintf(text, sizeof(text), format, value);
        return *this << text;
    }

    void advance(std::size_t length) {
        _pos += length;
        _buf[_pos] = 0;
        checkInvariants();
    }

    void checkInvariants() const {
        CHECK(!_buf[_pos]);
        CHECK(!_buf[SIZE]);
        CHECK(_pos <= SIZE);
    }

    char _buf[SIZE + 1] = {};
    std::uint64_t _pos = 0;
};

}  // namespace util
