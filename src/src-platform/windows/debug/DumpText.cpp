#include "windows/debug/DumpText.h"

#include <algorithm>
#include <cstring>

#include "io/filesystem/FileSystemHelper.h"

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
    if (_error == 0) {
        _error = io::filesystem::writeAll(_file, _buffer.data(), _used);
    }
    _used = 0;
}

}  // namespace windows::debug
