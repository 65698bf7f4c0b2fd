#include "classifier/TokenCounts.h"

#include <cstring>
#include <limits>
#include <random>

namespace halvern::classifier {

TokenCounts::Hash::Hash() {
    std::random_device random;
    for (std::uint64_t& key : _keys) {
        key = (static_cast<std::uint64_t>(random()) << 32) | random();
    }
}

std::uint32_t TokenCounts::Hash::block(std::uint32_t state, std::string_view bytes) const {
    std::uint32_t words[1 + BLOCK / sizeof(std::uint32_t)] = {state};
    std::memcpy(words + 1, bytes.data(), bytes.size());
    std::uint64_t sum = _keys[8];
    for (std::size_t i = 0; i < 8; i += 2) {
        sum += (_keys[i] + words[i]) * (_keys[i + 1] + words[i + 1]);
    }
    return static_cast<std::uint32_t>(sum >> 32);
}

std::uint32_t TokenCounts::Hash::operator()(std::string_view token) const {
    // The length goes in first, since the last block is filled up with zeros.
    auto state = static_cast<std::uint32_t>(token.size());
    while (token.size() > BLOCK) {
        state = block(state, token.substr(0, BLOCK));
        token.remove_prefix(BLOCK);
    }
    return block(state, token);
}

const TokenCounts::Hash& TokenCounts::processHash() {
    static const Hash hash;
    return hash;
}

TokenCounts::TokenCounts() : _hash(processHash()) {}

void TokenCounts::add(std::string_view token) {
    if (_records.size() * 2 >= _slots.size()) {
        grow();
    }
    const std::uint32_t hash = _hash(token);
    const std::size_t mask = _slots.size() - 1;
    std::size_t slot = hash & mask;
    for (; _slots[slot].place != 0; slot = (slot + 1) & mask) {
        if (_slots[slot].hash != hash) {
            continue;
        }
        Record& record = _records[_slots[slot].place - 1];
        if (record.length == token.size() &&
            std::memcmp(_bytes.data() + record.offset, token.data(), token.size()) == 0) {
            record.count += record.count != std::numeric_limits<std::uint32_t>::max() ? 1 : 0;
            return;
        }
    }
    insert(slot, hash, token);
}

void TokenCounts::insert(std::size_t slot, std::uint32_t hash, std::string_view token) {
    const std::size_t offset = _bytes.size();
    _bytes.insert(_bytes.end(), token.begin(), token.end());
    _records.push_back({offset, static_cast<std::uint32_t>(token.size()), 1});
    _slots[slot] = {hash, static_cast<std::uint32_t>(_records.size())};
}

void TokenCounts::grow() {
    constexpr std::size_t FIRST_SIZE = 64;
    std::vector<Slot> slots(_slots.empty() ? FIRST_SIZE : _slots.size() * 2);
    const std::size_t mask = slots.size() - 1;
    for (const Slot& old : _slots) {
        if (old.place == 0) {
            continue;
        }
        std::size_t slot = old.hash & mask;
        while (slots[slot].place != 0) {
            slot = (slot + 1) & mask;
        }
        slots[slot] = old;
    }
    _slots.swap(slots);
}

}  // namespace halvern::classifier
