#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "exceptions/Exception.h"
#include "util/Bytes.h"

namespace util::database {

// The stored bytes are the memory image of their numbers.
static_assert(std::endian::native == std::endian::little);

// Stored data is cut off, or contradicts itself. The text says how.
class DatabaseReaderException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

// Takes typed values off a byte buffer, front to back: the only way in for stored data, which may be damaged.
//
// Looks at the buffer without copying it, so the buffer must outlive the reader and stay as it is. No
// operation reads beyond the end, whatever the size; one that would throws DatabaseReaderException and leaves
// the position where it was.
class DatabaseReader {
public:
    explicit DatabaseReader(std::span<const char> data)
        : _position(data.data()), _end(data.data() + data.size()) {}
    explicit DatabaseReader(Bytes&&) = delete;

    // A number in little-endian order.
    template <class T>
    T getNextPrimitive() {
        static_assert(std::is_arithmetic_v<T>);
        requireRemaining(sizeof(T), "getNextPrimitive");
        T value;
        std::memcpy(&value, _position, sizeof(T));
        _position += sizeof(T);
        return value;
    }

    // Takes size bytes; out then holds just these.
    void getNextCharStream(Bytes& out, std::uint32_t size);

    // Takes a length as signed 32 bits and then that many bytes. A negative length is damage.
    void getNextString(std::string& out);

    // Takes count records, bound test first, and gives the place where they lie in the buffer.
    template <class R>
    const R* getNextRecords(std::uint32_t count) {
        static_assert(std::is_trivially_copyable_v<R> && alignof(R) == 1);
        const std::uint64_t size = std::uint64_t{count} * sizeof(R);
        requireRemaining(size, "getNextCharStream");
        const R* const records = reinterpret_cast<const R*>(_position);
        _position += size;
        return records;
    }

    bool atEnd() const { return _position == _end; }

private:
    std::uint64_t remaining() const { return static_cast<std::uint64_t>(_end - _position); }
    void requireRemaining(std::uint64_t size, const char* method) const {
        if (size > remaining()) {
            throwTooLong(method);
        }
    }
    [[noreturn]] static void throwTooLong(const char* method);

    const char* _position;
    const char* const _end;
};

// Appends the memory image of a number.
template <class T>
void writePrimitive(Bytes& out, T value) {
    static_assert(std::is_arithmetic_v<T>);
    const char* const bytes = reinterpret_cast<const char*>(&value);
    out.insert(out.end(), bytes, bytes + sizeof(T));
}

// Appends the length in 32 bits and then the bytes.
void writeString(Bytes& out, std::string_view text);

}  // namespace util::database
