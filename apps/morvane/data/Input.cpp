#include "data/Input.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "Failure.h"

namespace halvern::morvane::client {

namespace {

constexpr std::size_t BUFFER_BYTES = 1 << 16;

[[noreturn]] void throwUnreadable(const std::string& path, const std::string& what) {
    throw Failure{ExitCode::LOCAL_FILE, "Can't " + what + " '" + path + "': " + std::strerror(errno) + "."};
}

}  // namespace

Input::Input(const std::string& path)
    : _path(path), _file(std::fopen(path.c_str(), "rbe")), _buffer(BUFFER_BYTES) {
    if (_file == nullptr) {
        throwUnreadable(_path, "open");
    }
    struct stat status = {};
    if (::fstat(::fileno(_file.get()), &status) == 0 && S_ISREG(status.st_mode)) {
        _size = static_cast<std::uint64_t>(status.st_size);
    }
    fill();
    const std::string_view start(_buffer.data(), _filled);
    if (start.starts_with("\xff\xfe") || start.starts_with("\xfe\xff")) {
        throw Failure{ExitCode::LOCAL_FILE, "'" + path + "' is in UTF-16.",
                      "Convert it: iconv -f UTF-16 -t UTF-8 < FILE > NEW"};
    }
    if (start.starts_with("\xef\xbb\xbf")) {
        _next = 3;
    }
}

bool Input::fill() {
    _before += _filled;
    _next = 0;
    _filled = std::fread(_buffer.data(), 1, _buffer.size(), _file.get());
    if (_filled == 0 && std::ferror(_file.get()) != 0) {
        throwUnreadable(_path, "read");
    }
    return _filled > 0;
}

bool Input::getLine(std::string& line) {
    line.clear();
    if (peek() == END) {
        return false;
    }
    while (peek() != END) {
        const char* const start = _buffer.data() + _next;
        const auto* const end = static_cast<const char*>(std::memchr(start, '\n', _filled - _next));
        const std::size_t length = end == nullptr ? _filled - _next : static_cast<std::size_t>(end - start);
        line.append(start, length);
        _next += length;
        if (end != nullptr) {
            get();
            break;
        }
    }
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    return true;
}

}  // namespace halvern::morvane::client
