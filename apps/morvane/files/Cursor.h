#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "util/Bytes.h"

namespace halvern::morvane::client::files {

// Walks through stored data and always knows where it is, which is what complaints are about.
class Cursor {
public:
    explicit Cursor(const util::Bytes& data) : _data(data.data(), data.size()) {}

    std::uint64_t offset() const { return _offset; }
    std::uint64_t remaining() const { return _data.size() - _offset; }

    // False, and nothing taken, if the data ends before.
    template <class T>
    bool take(T& value) {
        if (remaining() < sizeof(T)) {
            return false;
        }
        std::memcpy(&value, _data.data() + _offset, sizeof(T));
        _offset += sizeof(T);
        return true;
    }
    bool take(std::string_view& bytes, std::uint64_t size) {
        if (remaining() < size) {
            return false;
        }
        bytes = _data.substr(_offset, size);
        _offset += size;
        return true;
    }

private:
    std::string_view _data;
    std::uint64_t _offset = 0;
};

}  // namespace halvern::morvane::client::files
