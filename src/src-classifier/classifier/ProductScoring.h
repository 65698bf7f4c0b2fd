#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "classifier/storage/StorageTypes.h"

namespace halvern::classifier {

// What follows from the class table alone: made once for many texts.
class ProductWeights {
public:
    // As many classes as the widest registers take at once. The compiler splits what is too wide for the
    // machine.
    static constexpr std::size_t blockSize = 8;
    using Lanes [[gnu::vector_size(blockSize * sizeof(double))]] = double;

    // Far from where a quotient by the smoothing would leave the range.
    static bool areFor(double smoothing) { return smoothing >= 1e-100 && smoothing <= 1e100; }

    // Requires at least one class, and a smoothing that they are for.
    ProductWeights(const std::vector<storage::ClassEntry>& classes, double smoothing);

    // Aligned for the widest registers, which the type alone is only where all code is made for them.
    struct alignas(sizeof(Lanes)) Boosts {
        Lanes own;     // of the class's counts, divided by the smoothing
        Lanes others;  // of the counts of all other classes
    };

    std::size_t classCount() const { return _rarity.size() - 1; }
    // By blocks of classes. What is behind the last class is 0.
    const std::vector<Boosts>& boosts() const { return _boosts; }
    double greatestBoost() const { return _greatestBoost; }
    // Requires 0 < holders <= classCount().
    double rarity(std::size_t holders) const { return _rarity[holders]; }

private:
    std::vector<Boosts> _boosts;
    double _greatestBoost = 0.0;
    std::vector<double> _rarity;  // by the number of holders
};

// The probabilities of Scoring, for answers that need nothing else, at a small part of its cost: about one
// multiplication for each class of each token.
//
// A class's score is a sum of m ln(own^0.05 / others) over the tokens, which is 0.05 ln of the product of all
// own^m less ln of the product of all others^m. So a logarithm is taken at the end, of what remains of the
// products when their exponents have been taken off, and powers never. Of scores only the differences count,
// so each own value may be divided by the smoothing: it is 1 then for the classes that don't hold the token,
// which are most, and they need no step.
class ProductScoring {
public:
    // The weights must outlive the scoring.
    explicit ProductScoring(const ProductWeights& weights);
    ProductScoring(const ProductScoring&) = delete;
    ProductScoring& operator=(const ProductScoring&) = delete;

    // Takes in a token that occurs so many times in the text. Requires that at least one class holds it.
    void add(const storage::FeatureRecords& token, std::uint32_t occurrences);

    // How many tokens were taken in.
    double found() const { return _found; }

    // The probabilities of the classes. To be called once.
    std::vector<double> probabilities();

private:
    static constexpr std::size_t blockSize = ProductWeights::blockSize;
    using Lanes = ProductWeights::Lanes;
    using Exponents [[gnu::vector_size(blockSize * sizeof(std::int64_t))]] = std::int64_t;
    using Counts [[gnu::vector_size(blockSize * sizeof(std::uint32_t))]] = std::uint32_t;
    struct alignas(sizeof(Lanes)) Block {
        Lanes own;                 // product of the own values
        Lanes others;              // product of what the own values are divided by
        Lanes correction;          // what others is to be multiplied by
        Exponents ownExponent;     // of 2, taken off the product
        Exponents othersExponent;  // likewise
        Counts count;              // of the present token; 0 in between
    };

    // Whether a token of so many holders is dealt with by steps for all classes alone.
    bool isDense(std::size_t holders) const { return !_isPair && 2 * holders > _weights.boosts().size(); }
    static std::uint64_t sumOf(const storage::FeatureRecords& token);
    // Sets each class's count of the token, and returns their sum.
    std::uint64_t spread(const storage::FeatureRecords& token);
    // Requires the counts of a token that is dense to be set.
    void multiply(const storage::FeatureRecords& token, double total, std::uint32_t occurrences);
    void multiplyHolder(const storage::Parameter& parameter, double rarity, double total,
                        std::uint32_t occurrences);
    // The products of all classes, each with its count of the token, which becomes 0.
    static void multiplyCounted(const std::vector<ProductWeights::Boosts>& boosts, Block* blocks,
                                double rarity, double total, std::uint32_t occurrences);
    // The products of all classes as if none held the token.
    static void multiplyOthers(const std::vector<ProductWeights::Boosts>& boosts, Block* blocks,
                               double weightedTotal, std::uint32_t occurrences);
    // Takes the exponents off the products, and the correction into others.
    static void normalise(Block* blocks, std::size_t count);
    // Moves the products, each to this power, into the scores.
    void collect(double power);
    // All products are 1 then.
    void reset();

    static constexpr std::size_t fewBlocks = 12;

    const ProductWeights& _weights;
    bool _isPair;
    double _found = 0.0;
    double _squares = 0.0;
    std::uint64_t _bits = 0;  // no product is further from 1 than 2 to this or its reciprocal
    std::vector<double> _score;
    std::vector<Block> _many;  // empty if the few suffice
    Block _few[fewBlocks];
    Block* _blocks;
};

}  // namespace halvern::classifier
