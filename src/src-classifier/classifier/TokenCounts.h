#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory_resource>
#include <string_view>
#include <vector>

#include "classifier/MultilinearHash.h"
#include "classifier/NearMemory.h"
#include "classifier/Token.h"

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
    TokenCounts(const TokenCounts&) = delete;
    TokenCounts& operator=(const TokenCounts&) = delete;

    // Makes room for the tokens of a text of so many bytes, as far as texts of that length usually need it.
    void expectText(std::size_t bytes);

    // Counts one more occurrence of the token. The number sticks at 4,294,967,295.
    void add(const Token& token);
    // Requires a token that fits into a Token.
    void add(std::string_view token) { add(Token(token)); }

    // The number of distinct tokens.
    std::size_t size() const { return _records.size(); }
    bool empty() const { return _records.empty(); }

    Iterator begin() const { return {*this, 0}; }
    Iterator end() const { return {*this, _records.size()}; }

private:
    // The multilinear hash of a token.
    class Hash {
    public:
        std::uint32_t operator()(const Token& token) const;

    private:
        const std::array<std::uint64_t, 9> _keys = randomKeys<9>();
        const std::uint64_t _emptyMiddle = shareOfWord(0, &_keys[2]) + shareOfWord(0, &_keys[4]);
    };

    struct Record {
        Token token;
        std::uint32_t count;
    };

    struct Slot {
        std::uint32_t hash;
        std::uint32_t place;  // of the record, from 1; 0 is a free slot
    };

    static const Hash& processHash();

    Entry entry(std::size_t index) const { return {_records[index].token.text(), _records[index].count}; }
    void resize(std::size_t slots);

    // What the tokens of a text of some kilobytes need. Memory that is the same for text after text is in the
    // caches, and costs no request for it.
    static constexpr std::size_t nearSlots = 4096;

    const Hash& _hash;
    NearMemory<nearSlots * sizeof(Slot) + nearSlots / 2 * sizeof(Record)> _memory;
    std::pmr::vector<Slot> _slots{&_memory};      // open addressing, a power of two long, at most half full
    std::pmr::vector<Record> _records{&_memory};  // in the order of first occurrence
};

}  // namespace halvern::classifier
