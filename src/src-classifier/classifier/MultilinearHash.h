#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>

namespace halvern::classifier {

// A multilinear hash of 32-bit words is the upper half of a sum that has a share for each pair of words,
// under random 64-bit keys: two inputs that were chosen without knowing the keys share a hash with a chance
// of 2^-32 (Lemire and Kaser, "Strongly universal string hashing is fast").

template <std::size_t Count>
std::array<std::uint64_t, Count> randomKeys() {
    std::random_device random;
    std::array<std::uint64_t, Count> keys;
    for (std::uint64_t& key : keys) {
        key = static_cast<std::uint64_t>(random()) << 32 | random();
    }
    return keys;
}

// The share of the two halves of a word in that sum, under two keys.
inline std::uint64_t shareOfWord(std::uint64_t word, const std::uint64_t* keys) {
    return (keys[0] + static_cast<std::uint32_t>(word)) * (keys[1] + (word >> 32));
}

}  // namespace halvern::classifier
