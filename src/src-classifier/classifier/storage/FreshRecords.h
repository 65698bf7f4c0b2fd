#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "classifier/MultilinearHash.h"

namespace halvern::classifier::storage {

// The records that have come into a lane since it was last compact, found by their keys.
//
// They lie in a row, in the order in which they came, and a table of places beside them finds one by its
// hash: no block of memory for each, and nothing to walk through when they are taken out.
template <class Record>
class FreshRecords {
public:
    bool empty() const { return _records.empty(); }
    std::size_t size() const { return _records.size(); }

    // What finds a key. To be computed once where a search may lead to an insert.
    //
    // To the hash of the record comes a multilinear one, whose keys are drawn once for each process: no words
    // can be chosen that collide.
    static std::uint32_t hashOf(const Record& key) {
        std::uint64_t sum = key.hash() + _keys[0] * key.parameter.classIndex();
        for (std::size_t i = 0; i < Record::words; ++i) {
            sum += shareOfWord(key.word(i), &_keys[2 * i + 1]);
        }
        return static_cast<std::uint32_t>(sum >> 32);
    }

    // The record of that key, or null. Good until the next insert or clear.
    Record* find(const Record& key, std::uint32_t hash) {
        return const_cast<Record*>(std::as_const(*this).find(key, hash));
    }
    const Record* find(const Record& key, std::uint32_t hash) const {
        if (_records.empty()) {
            return nullptr;
        }
        const Slot& slot = _slots[slotOf(key, hash)];
        return slot.place == 0 ? nullptr : &_records[slot.place - 1];
    }

    // Makes room for so many inserts, which then need no memory. Throws std::bad_alloc and changes nothing.
    void reserve(std::size_t more) {
        const std::size_t size = _records.size() + more;
        if (size > _records.capacity()) {
            _records.reserve(std::max(size, 2 * _records.capacity()));
        }
        if (2 * size > _slots.size()) {
            resize(std::bit_ceil(std::max(2 * size, FEWEST_SLOTS)));
        }
    }

    // Requires that there is no record of that key. Throws std::bad_alloc and changes nothing then.
    Record& insert(const Record& record, std::uint32_t hash) {
        reserve(1);
        Slot& slot = _slots[slotOf(record, hash)];
        _records.push_back(record);
        slot = {hash, static_cast<std::uint32_t>(_records.size())};
        return _records.back();
    }

    // All of them, in the order in which they came.
    const std::vector<Record>& records() const { return _records; }

    // Gives all memory back.
    void clear() noexcept { *this = FreshRecords(); }

private:
    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t place = 0;  // of the record, from 1; 0 is a free slot
    };

    static constexpr std::size_t FEWEST_SLOTS = 16;

    // Where the search for a key begins.
    static std::size_t firstSlot(std::uint32_t hash, const std::vector<Slot>& slots) {
        return static_cast<std::size_t>(std::uint64_t{hash} * slots.size() >> 32);
    }

    // Where the record of that key is, or would go. Requires a free slot.
    std::size_t slotOf(const Record& key, std::uint32_t hash) const {
        const std::size_t mask = _slots.size() - 1;
        std::size_t slot = firstSlot(hash, _slots);
        while (_slots[slot].place != 0 &&
               (_slots[slot].hash != hash || !(_records[_slots[slot].place - 1] == key))) {
            slot = (slot + 1) & mask;
        }
        return slot;
    }

    void resize(std::size_t size) {
        std::vector<Slot> slots(size);
        const std::size_t mask = size - 1;
        for (const Slot& old : _slots) {
            if (old.place != 0) {
                std::size_t slot = firstSlot(old.hash, slots);
                while (slots[slot].place != 0) {
                    slot = (slot + 1) & mask;
                }
                slots[slot] = old;
            }
        }
        _slots.swap(slots);
    }

    static inline const auto _keys = randomKeys<1 + 2 * Record::words>();

    std::vector<Record> _records;
    std::vector<Slot> _slots;  // open addressing, a power of two long, at most half full
};

}  // namespace halvern::classifier::storage
