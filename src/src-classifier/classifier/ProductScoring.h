#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "classifier/storage/StorageTypes.h"

namespace halvern::classifier {

// The probabilities of Scoring, for answers that need nothing else, at a small part of its cost: about one
// multiplication for each class of each token.
//
// A class's score is a sum of m ln(own^0.05 / others) over the tokens, which is 0.05 ln of the product of all
// own^m less ln of the product of all others^m. So logarithms are taken only when a product is about to leave
// the range of a double, and powers never. Of scores only the differences count, so each own value may be
// divided by the smoothing: it is 1 then for the classes that don't hold the token, which are most, and they
// need no step.
class ProductScoring {
public:
    // Far from where a quotient by the smoothing would leave the range.
    static bool isFor(double smoothing) { return smoothing >= 1e-100 && smoothing <= 1e100; }

    // Requires at least one class, and a smoothing that this is for.
    ProductScoring(const std::vector<storage::ClassEntry>& classes, double smoothing);

    // Takes in a token that occurs so many times in the text. Requires that at least one class holds it.
    void add(const storage::FeatureRecords& token, std::uint32_t occurrences);

    // How many tokens were taken in.
    double found() const { return _found; }

    // The probabilities of the classes. To be called once.
    std::vector<double> probabilities();

private:
    // As many classes as the widest registers take at once. The compiler splits what is too wide for the
    // machine.
    static constexpr std::size_t blockSize = 8;
    using Lanes [[gnu::vector_size(blockSize * sizeof(double))]] = double;
    struct alignas(blockSize * sizeof(double)) Block {
        Lanes ownBoost;    // of the class's counts, divided by the smoothing
        Lanes otherBoost;  // of the counts of all other classes
        Lanes own;         // product of the own values
        Lanes others;      // product of what the own values are divided by
        Lanes correction;  // what others is to be multiplied by
        Lanes count;       // of the present token; 0 in between
    };

    double rarity(std::size_t holders);
    void multiply(const storage::FeatureRecords& token, double rarity, double total,
                  std::uint32_t occurrences);
    // The products of all classes, each with its count of the token, which becomes 0.
    static void multiplyCounted(std::vector<Block>& blocks, double rarity, double total,
                                std::uint32_t occurrences);
    // The products of all classes as if none held the token.
    static void multiplyOthers(std::vector<Block>& blocks, double weightedTotal, std::uint32_t occurrences);
    // Moves the products, each to this power, into the scores.
    void flush(double power);

    std::size_t _classCount;
    double _greatestBoost = 0.0;
    double _found = 0.0;
    double _squares = 0.0;
    std::uint64_t _bits = 0;  // no product is further from 1 than 2 to this or its reciprocal
    std::vector<Block> _blocks;
    std::vector<double> _score;
    std::vector<double> _rarity;  // by the number of holders, from 1; 0 where it isn't known yet
};

}  // namespace halvern::classifier
