#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <vector>

namespace halvern::classifier {

// How often each token occurs in one text.
//
// Iteration follows the first occurrence of the tokens in the text, so that everything computed from the
// counts depends on the text alone. The hash behind it has keys drawn once for each process: a text can't be
// built so that its tokens collide. Made, filled, read and dropped by one thread.
class TokenCounts {
public:
    struct Entry {
        std::string_view token;  // valid until the next add
        std::uint32_t count;
    };

    class Iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;
        using pointer = const Entry*;
        using reference = Entry;

        Iterator(const TokenCounts& counts, std::size_t index) : _counts(&counts), _index(index) {}
        Entry operator*() const { return _counts->entry(_index); }
        Iterator& operator++() {
            ++_index;
            return *this;
        }
        bool operator==(const Iterator& other) const { return _index == other._index; }

    private:
        const TokenCounts* _counts;
        std::size_t _index;
    };

    TokenCounts();

    // Counts one more occurrence of the token. The number sticks at 4,294,967,295.
    void add(std::string_view token);

    // The number of distinct tokens.
    std::size_t size() const { return _records.size(); }
    bool empty() const { return _records.empty(); }

    Iterator begin() const { return {*this, 0}; }
    Iterator end() const { return {*this, _records.size()}; }

private:
    // A multilinear hash of 32-bit words under random 64-bit keys: two tokens that were chosen without
    // knowing the keys share a hash with a chance of 2^-32 (Lemire and Kaser, "Strongly universal string
    // hashing is fast").
    class Hash {
    public:
        Hash();
        std::uint32_t operator()(std::string_view token) const;

    private:
        static constexpr std::size_t BLOCK = 28;
        std::uint32_t block(std::uint32_t state, std::string_view bytes) const;

        std::array<std::uint64_t, 9> _keys;
    };

    struct Record {
        std::size_t offset;  // of the token in _bytes
        std::uint32_t length;
        std::uint32_t count;
    };

    struct Slot {
        std::uint32_t hash;
        std::uint32_t place;  // of the record, from 1; 0 is a free slot
    };

    static const Hash& processHash();

    Entry entry(std::size_t index) const {
        const Record& record = _records[index];
        return {std::string_view(_bytes.data() + record.offset, record.length), record.count};
    }
    void insert(std::size_t slot, std::uint32_t hash, std::string_view token);
    void grow();

    const Hash& _hash;
    std::vector<Slot> _slots;      // open addressing, a power of two long, at most half full
    std::vector<Record> _records;  // in the order of first occurrence
    std::vector<char> _bytes;      // the tokens, one behind the other
};

}  // namespace halvern::classifier
