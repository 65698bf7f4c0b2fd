#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace halvern::morvane::client {

// A file as a stream of bytes that knows its place.
//
// A UTF-8 byte order mark in front is no part of the content.
class Input {
public:
    static constexpr int END = -1;

    // Throws Failure (LOCAL_FILE) if the file can't be opened or is in UTF-16.
    explicit Input(const std::string& path);

    // The next byte, or END. Throws Failure (LOCAL_FILE) if reading fails.
    int get() {
        const int byte = peek();
        if (byte != END) {
            ++_next;
            _line += byte == '\n' ? 1 : 0;
        }
        return byte;
    }
    int peek() { return _next < _filled || fill() ? static_cast<unsigned char>(_buffer[_next]) : END; }

    // Replaces line by everything up to the next line end, LF or CRLF, which is left out. False at the end.
    bool getLine(std::string& line);

    // The number of the line in which the next byte stands, from 1.
    std::uint64_t line() const { return _line; }
    std::uint64_t position() const { return _before + _next; }
    std::uint64_t size() const { return _size; }

private:
    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    bool fill();

    const std::string _path;
    std::unique_ptr<std::FILE, Closer> _file;
    std::vector<char> _buffer;
    std::size_t _next = 0;
    std::size_t _filled = 0;
    std::uint64_t _before = 0;  // bytes in front of the buffer
    std::uint64_t _line = 1;
    std::uint64_t _size = 0;
};

}  // namespace halvern::morvane::client
