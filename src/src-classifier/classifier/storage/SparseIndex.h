#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace halvern::classifier::storage {

// In which part of a long sorted array a search has to look.
//
// The array is cut into a power of two of blocks of even length. The first words of the blocks are kept as a
// tree without pointers, each level behind the one above it, which the nearest caches hold where they don't
// hold the array. It takes 8 bytes for each block.
class SparseIndex {
public:
    // As short as the memory for it allows: about one percent of the array.
    static constexpr std::size_t longestBlock = 64;

    // Takes the words from wordOf(index of the element); they never fall from one element to the next.
    // Allocates nothing when there are no more elements than before.
    template <class WordOf>
    void update(std::size_t elements, WordOf wordOf);
    void swap(SparseIndex& other) noexcept;

    // No block is longer, and the longest is as long as this.
    std::size_t blockLength() const { return (_elements + (std::size_t{1} << _levels) - 1) >> _levels; }
    // For each word, where the last block begins whose first word is below it, or else the first block. So
    // the first element that isn't below the word is in this block, or behind it where many have one word.
    template <std::size_t Count>
    void findBlocks(const std::uint64_t (&words)[Count], std::size_t (&begins)[Count]) const;

private:
    std::size_t beginOf(std::size_t block) const { return block * _elements >> _levels; }

    std::size_t _elements = 0;
    std::size_t _levels = 0;
    std::vector<std::uint64_t> _tree;  // the children of i are 2i and 2i + 1; the root is 1
};

template <class WordOf>
void SparseIndex::update(std::size_t elements, WordOf wordOf) {
    const std::size_t levels = elements > longestBlock ? std::bit_width((elements - 1) / longestBlock) : 0;
    _tree.resize(levels > 0 ? std::size_t{1} << levels : 0);
    _elements = elements;
    _levels = levels;
    std::size_t node = 1;
    for (std::size_t level = 0; level < levels; ++level) {
        const std::size_t distance = std::size_t{1} << (levels - level);
        for (std::size_t block = distance / 2; node < std::size_t{2} << level; block += distance) {
            _tree[node++] = wordOf(beginOf(block));
        }
    }
}

// No step branches on its outcome, which nothing could predict, and all searches take each step together, so
// that they wait for the caches together.
template <std::size_t Count>
void SparseIndex::findBlocks(const std::uint64_t (&words)[Count], std::size_t (&begins)[Count]) const {
    std::size_t nodes[Count];
    for (std::size_t& node : nodes) {
        node = 1;
    }
    for (std::size_t level = 0; level < _levels; ++level) {
        for (std::size_t i = 0; i < Count; ++i) {
            nodes[i] = 2 * nodes[i] + (_tree[nodes[i]] < words[i] ? 1 : 0);
        }
    }
    for (std::size_t i = 0; i < Count; ++i) {
        begins[i] = beginOf(nodes[i] - (std::size_t{1} << _levels));
    }
}

inline void SparseIndex::swap(SparseIndex& other) noexcept {
    std::swap(_elements, other._elements);
    std::swap(_levels, other._levels);
    _tree.swap(other._tree);
}

}  // namespace halvern::classifier::storage
