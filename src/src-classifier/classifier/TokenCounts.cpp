#include "classifier/TokenCounts.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace halvern::classifier {

// Most tokens leave the words in the middle empty. What those add then is known beforehand.
inline std::uint32_t TokenCounts::Hash::operator()(const Token& token) const {
    const auto share = [&](std::size_t i) { return shareOfWord(token.words()[i], &_keys[2 * i]); };
    const std::uint64_t middle = token.length() <= 8 ? _emptyMiddle : share(1) + share(2);
    return static_cast<std::uint32_t>((_keys[8] + share(0) + middle + share(3)) >> 32);
}

const TokenCounts::Hash& TokenCounts::processHash() {
    static const Hash hash;
    return hash;
}

TokenCounts::TokenCounts() : _hash(processHash()) {}

// Most texts have a token for each two to three bytes, and the slots are to be half full.
void TokenCounts::expectText(std::size_t bytes) {
    constexpr std::size_t FEWEST = 32;
    constexpr std::size_t MOST = 8192;  // of what is repeated more often in longer texts
    const std::size_t slots = std::bit_ceil(std::clamp(bytes, FEWEST, MOST));
    if (slots > _slots.size()) {
        resize(slots);
        _records.reserve(slots / 2);
    }
}

void TokenCounts::add(const Token& token) {
    constexpr std::size_t FIRST_SIZE = 64;
    if (_records.size() * 2 >= _slots.size()) {
        resize(std::max(FIRST_SIZE, _slots.size() * 2));
    }
    const std::uint32_t hash = _hash(token);
    const std::size_t mask = _slots.size() - 1;
    std::size_t slot = hash & mask;
    for (; _slots[slot].place != 0; slot = (slot + 1) & mask) {
        if (_slots[slot].hash != hash) {
            continue;
        }
        Record& record = _records[_slots[slot].place - 1];
        if (record.token == token) {
            record.count += record.count != std::numeric_limits<std::uint32_t>::max() ? 1 : 0;
            return;
        }
    }
    _records.push_back({token, 1});
    _slots[slot] = {hash, static_cast<std::uint32_t>(_records.size())};
}

void TokenCounts::resize(std::size_t size) {
    std::pmr::vector<Slot> slots(size, &_memory);
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
