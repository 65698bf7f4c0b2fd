#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "util/Bytes.h"

namespace halvern::classifier::storage {

// A token as it is stored, and how often it was counted.
struct StoredToken {
    const char* bytes;  // null for an unknown token
    std::uint32_t count;
};

// All tokens of one length that one class of the old data holds. Only the migration of that data uses it.
//
// The sorted chunks are the old data's own bytes: a token, then its count. New tokens wait in a map until
// compact().
class MemoryLane {
public:
    explicit MemoryLane(std::uint32_t tokenSize) : _TokenSize(tokenSize), _ChunkSize(tokenSize + 4) {}

    // Requires a token of the lane's length.
    StoredToken find(std::string_view token) const;
    // Requires a token of the lane's length; 0 for an unknown one.
    std::uint32_t getCount(std::string_view token) const;
    // Returns the token's new count. Requires a token of the lane's length and count > 0.
    std::uint32_t add(std::string_view token, std::uint32_t count);
    // Takes off at most what the token has, and returns what remains. Requires the same as add.
    std::uint32_t sub(std::string_view token, std::uint32_t count);

    // Replaces out with one sorted array of all chunks whose count isn't 0.
    void flatten(util::Bytes& out) const;
    void compact();
    void clear();
    // Replaces the content with sorted chunks. Requires a size that is a multiple of the chunk's.
    void setPermanent(util::Bytes&& bytes);

    std::uint32_t chunkSize() const { return _ChunkSize; }
    // Sum of all counts, modulo 2^32.
    std::uint32_t total() const { return _total; }
    // Number of tokens whose count isn't 0.
    std::uint64_t uniqueCount() const {
        return _permanent.size() / _ChunkSize - _deleted + _temporary.size();
    }

    // Calls visit(token, count) for the chunks in order, those with count 0 included, then for the new tokens
    // in order.
    template <class Visit>
    void forEach(const Visit& visit) const {
        for (std::size_t at = 0; at < _permanent.size(); at += _ChunkSize) {
            const char* const chunk = _permanent.data() + at;
            visit(std::string_view(chunk, _TokenSize), countOf(chunk));
        }
        for (const auto& [token, count] : _temporary) {
            visit(std::string_view(token), count);
        }
    }

private:
    std::uint32_t countOf(const char* chunk) const {
        std::uint32_t count = 0;
        std::memcpy(&count, chunk + _TokenSize, sizeof(count));
        return count;
    }
    std::uint32_t countAt(std::size_t index) const;
    void setCount(const char* chunk, std::uint32_t count);
    // The token's chunk, or null.
    const char* search(std::string_view token) const;

    // NOLINTBEGIN(bugprone-reserved-identifier): reports of failed checks show these names.
    std::uint32_t _TokenSize;
    std::uint32_t _ChunkSize;
    // NOLINTEND(bugprone-reserved-identifier)
    std::map<std::string, std::uint32_t, std::less<>> _temporary;  // no token of _permanent, no count of 0
    util::Bytes _permanent;
    std::uint32_t _deleted = 0;  // chunks of _permanent with count 0
    std::uint32_t _total = 0;
};

}  // namespace halvern::classifier::storage
