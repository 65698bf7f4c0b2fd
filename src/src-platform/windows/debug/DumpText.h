#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace windows::debug {

// The growing text of a dump on its way into a file.
//
// Takes no lock and no heap memory, so that it may be used where a signal has stopped the process. What goes
// beyond MAX_SIZE is dropped; after a failed write nothing more is tried.
class DumpText {
public:
    static constexpr std::size_t MAX_SIZE = std::size_t{256} * 1024 - 1;

    // The file is not closed by this object.
    explicit DumpText(int file) : _file(file) {}

    DumpText& operator<<(const char* text);
    DumpText& operator<<(std::int64_t number);
    DumpText& hex(std::uint64_t number);

    // A number of at most two digits, with a leading zero.
    DumpText& twoDigits(unsigned number);

    void append(const char* bytes, std::size_t size);

    // The bytes that the text may still grow by.
    std::size_t room() const { return MAX_SIZE - _size; }

    // Writes what is still in the buffer. Gives 0, or the system's error of the first write that failed.
    int finish();

private:
    void flush();

    const int _file;
    // Few writes, because each of them waits for the disk.
    std::array<char, 16384> _buffer;
    std::size_t _used = 0;
    std::size_t _size = 0;
    int _error = 0;
};

}  // namespace windows::debug
