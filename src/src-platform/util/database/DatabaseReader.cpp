#include "util/database/DatabaseReader.h"

namespace util::database {

void DatabaseReader::getNextCharStream(Bytes& out, std::uint32_t size) {
    requireRemaining(size, "getNextCharStream");
    out.assign(_position, _position + size);
    _position += size;
}

void DatabaseReader::getNextString(std::string& out) {
    const char* const start = _position;
    const std::int32_t length = getNextPrimitive<std::int32_t>();
    if (length < 0 || static_cast<std::uint64_t>(length) > remaining()) {
        _position = start;
        throwTooLong("getNextString");
    }
    out.assign(_position, static_cast<std::size_t>(length));
    _position += length;
}

void DatabaseReader::throwTooLong(const char* method) {
    throw DatabaseReaderException(
        std::string("The database is corrupt, the size of a member exceeds the database size. Method ") +
        method + ".");
}

void writeString(Bytes& out, std::string_view text) {
    writePrimitive(out, static_cast<std::uint32_t>(text.size()));
    out.insert(out.end(), text.begin(), text.end());
}

}  // namespace util::database
