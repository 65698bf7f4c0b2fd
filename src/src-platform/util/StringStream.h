#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "debug/Assertion.h"

namespace util {

// Text that may grow without limit: responses and log entries.
//
// The first SIZE characters lie inside the object, so a small text needs no heap. Beyond that the buffer
// doubles. Input ends at its first zero byte. An append that runs out of memory leaves the text as it was and
// throws std::bad_alloc.
template <std::size_t SIZE>
class StringStream {
public:
    StringStream() = default;
    StringStream(const StringStream&) = delete;
    StringStream& operator=(const StringStream&) = delete;

    StringStream& operator<<(const char* text) { return append(text, std::strlen(text)); }
    StringStream& operator<<(const std::string& text) { return *this << text.c_str(); }

    template <std::integral T>
    StringStream& operator<<(T value) {
        static_assert(!std::same_as<T, char> && !std::same_as<T, bool>, "Write characters as strings");
        char text[32];
        int ret;
        if constexpr (std::is_signed_v<T>) {
            ret = std::snprintf(text, sizeof(text), "%lld", static_cast<long long>(value));
        } else {
            ret = std::snprintf(text, sizeof(text), "%llu", static_cast<unsigned long long>(value));
        }
        CHECK(ret > 0);
        return append(text, static_cast<std::size_t>(ret));
    }

    const char* str() const { return buffer(); }
    std::uint64_t size() const { return _pos; }

    // Empties the text and gives its memory back.
    void clear() {
        StringStream empty;
        swap(empty);
    }

    void swap(StringStream& other) {
        // An inline buffer cannot change places, so both are copied; for heap buffers these bytes mean
        // nothing.
        char kept[SIZE + 1];
        std::memcpy(kept, _inline, sizeof(kept));
        std::memcpy(_inline, other._inline, sizeof(kept));
        std::memcpy(other._inline, kept, sizeof(kept));
        std::swap(_heap, other._heap);
        std::swap(_bufSize, other._bufSize);
        std::swap(_pos, other._pos);
    }

private:
    const char* buffer() const { return _heap ? _heap.get() : _inline; }
    char* buffer() { return _heap ? _heap.get() : _inline; }

    StringStream& append(const char* text, std::size_t length) {
        checkInvariants();
        std::unique_ptr<char[]> outgrown;  // kept to the end, since text may lie in it
        if (_pos + length >= _bufSize) {
            const std::size_t newSize = (_bufSize + length) * 2 + 2;
            std::unique_ptr<char[]> newBuffer(new char[newSize]);
            std::memcpy(newBuffer.get(), buffer(), _pos + 1);
            CHECK(!newBuffer[_pos]);
            outgrown = std::exchange(_heap, std::move(newBuffer));
            _bufSize = newSize;
        }
        std::memcpy(buffer() + _pos, text, length);
        _pos += length;
        buffer()[_pos] = 0;
        checkInvariants();
        return *this;
    }

    void checkInvariants() const {
        CHECK(!buffer()[_pos]);
        CHECK(_pos < _bufSize);
    }

    std::unique_ptr<char[]> _heap;  // null while the text fits in _inline
    std::uint64_t _bufSize = SIZE + 1;
    char _inline[SIZE + 1] = {};
    std::uint64_t _pos = 0;
};

}  // namespace util
