#include "windows/debug/DumpText.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace windows::debug {

namespace {

// The digits of a number from the last to the first, ending before the terminating zero at end.
char* writeDigits(char* end, std::uint64_t number, unsigned base) {
    *end = 0;
    do {
        *--end = "0123456789abcdef"[number % base];
        number /= base;
    } while (number != 0);
    return end;
}

}  // namespace

DumpText& DumpText::operator<<(const char* text) {
    append(text, std::strlen(text));
    return *this;
}

DumpText& DumpText::operator<<(std::int64_t number) {
    char digits[32];
    const auto magnitude = static_cast<std::uint64_t>(number);
    if (number < 0) {
        *this << "-";
    }
    return *this << writeDigits(digits + sizeof(digits) - 1, number < 0 ? 0 - magnitude : magnitude, 10);
}

DumpText& DumpText::hex(std::uint64_t number) {
    char digits[32];
    return *this << "0x" << writeDigits(digits + sizeof(digits) - 1, number, 16);
}

DumpText& DumpText::twoDigits(unsigned number) {
    return *this << (number < 10 ? "0" : "") << static_cast<std::int64_t>(number);
}

void DumpText::append(const char* bytes, std::size_t size) {
    size = std::min(size, room());
    _size += size;
    while (size > 0) {
        const std::size_t part = std::min(size, _buffer.size() - _used);
        std::memcpy(_buffer.data() + _used, bytes, part);
        _used += part;
        bytes += part;
        size -= part;
        if (_used == _buffer.size()) {
            flush();
        }
    }
}

int DumpText::finish() {
    flush();
    return _error;
}

void DumpText::flush() {
    std::size_t done = 0;
    while (done < _used && _error == 0) {
        const ssize_t count = write(_file, _buffer.data() + done, _used - done);
        if (count >= 0) {
            done += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            _error = errno;
        }
    }
    _used = 0;
}

}  // namespace windows::debug
