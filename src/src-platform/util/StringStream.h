#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <system_error>
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
        const std::to_chars_result end = std::to_chars(text, text + sizeof(text), value);
        CHECK(end.ec == std::errc());
        return append(text, static_cast<std::size_t>(end.ptr - text));
    }

    // Appends what write(to) leaves from to up to the end that it returns: at most so many characters, none
    // of which is zero.
    template <class Write>
    StringStream& append(std::size_t most, Write write) {
        checkInvariants();
        if (_pos + most >= _bufSize) {
            growBy(most);
        }
        char* const from = buffer() + _pos;
        const char* const end = write(from);
        CHECK(from <= end && end <= from + most);
        _pos += static_cast<std::size_t>(end - from);
        buffer()[_pos] = 0;
        return *this;
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
        if (_pos + length >= _bufSize) {
            // text may lie in the buffer that moves.
            const bool isOwn =
                std::less_equal<>()(buffer(), text) && std::less_equal<>()(text, buffer() + _pos);
            const std::ptrdiff_t place = isOwn ? text - buffer() : 0;
            growBy(length);
            text = isOwn ? buffer() + place : text;
        }
        std::memcpy(buffer() + _pos, text, length);
        _pos += length;
        buffer()[_pos] = 0;
        checkInvariants();
        return *this;
    }

    // Large blocks move without being copied when they grow: the system maps their pages elsewhere.
    void growBy(std::size_t length) {
        const std::size_t newSize = (_bufSize + length) * 2 + 2;
        char* const grown = static_cast<char*>(std::realloc(_heap.get(), newSize));
        if (grown == nullptr) {
            throw std::bad_alloc();
        }
        if (!_heap) {
            std::memcpy(grown, _inline, _pos + 1);
        }
        (void)_heap.release();
        _heap.reset(grown);
        _bufSize = newSize;
        CHECK(!_heap[_pos]);
    }

    void checkInvariants() const {
        CHECK(!buffer()[_pos]);
        CHECK(_pos < _bufSize);
    }

    struct Free {
        void operator()(char* block) const { std::free(block); }
    };

    std::unique_ptr<char[], Free> _heap;  // null while the text fits in _inline
    std::uint64_t _bufSize = SIZE + 1;
    char _inline[SIZE + 1] = {};
    std::uint64_t _pos = 0;
};

}  // namespace util
