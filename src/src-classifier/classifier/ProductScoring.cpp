#include "classifier/ProductScoring.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

#include "classifier/Scoring.h"

// Compiles a function for each width of registers; the one for the machine is chosen when the program is
// loaded. That is before a sanitizer is ready for it.
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__) && !defined(MORVANE_SANITIZED)
#define WIDEST_REGISTERS [[gnu::target_clones("avx512f", "avx2", "default")]]
#else
#define WIDEST_REGISTERS
#endif

namespace halvern::classifier {

namespace {

constexpr std::uint64_t MOST_BITS = 1000;  // of the 1022 that a double has on either side of 1
constexpr std::uint64_t EXPONENT_OF_ONE = 1023;
constexpr int MANTISSA_BITS = 52;

// Requires a value of at least 1/2: the whole number above its binary logarithm, and at least 1.
std::uint64_t bitsOf(double value) {
    const std::uint64_t exponent = std::bit_cast<std::uint64_t>(value) >> MANTISSA_BITS;
    return std::max(exponent, EXPONENT_OF_ONE) - EXPONENT_OF_ONE + 1;
}

double powerOf(double base, std::uint32_t exponent) {
    double power = 1.0;
    for (; exponent > 1; exponent /= 2) {
        power *= exponent % 2 != 0 ? base : 1.0;
        base *= base;
    }
    return power * base;
}

// The inverse of OWN_EXPONENT as a power.
double twentiethPowerOf(double base) {
    static_assert(OWN_EXPONENT * 20 == 1.0);
    const double fourth = (base * base) * (base * base);
    return (fourth * fourth) * (fourth * fourth) * fourth;
}

}  // namespace

ProductWeights::ProductWeights(const std::vector<storage::ClassEntry>& classes, double smoothing)
    : _boosts((classes.size() + blockSize - 1) / blockSize), _rarity(classes.size() + 1) {
    std::vector<double> own(classes.size());
    std::vector<double> others(classes.size());
    boostsOf(classes, own.data(), others.data());
    for (std::size_t i = 0; i < classes.size(); ++i) {
        Boosts& boosts = _boosts[i / blockSize];
        boosts.own[i % blockSize] = own[i] / smoothing;
        boosts.others[i % blockSize] = others[i];
        // Divided by its smoothing, since a correction may be as small as the reciprocal of that quotient.
        _greatestBoost = std::max({_greatestBoost, own[i] / smoothing, others[i] / OTHERS_SMOOTHING});
        _rarity[i + 1] = rarityOf(classes.size(), i + 1);
    }
}

ProductScoring::ProductScoring(const ProductWeights& weights)
    : _weights(weights),
      _isPair(weights.classCount() == 2),
      _score(weights.classCount()),
      _many(weights.boosts().size() > fewBlocks ? weights.boosts().size() : 0),
      _blocks(_many.empty() ? _few : _many.data()) {
    reset();
    for (std::size_t i = 0; i < weights.boosts().size(); ++i) {
        _blocks[i].count = Counts{};
    }
}

void ProductScoring::add(const storage::FeatureRecords& token, std::uint32_t occurrences) {
    _found += 1.0;
    const double weight = occurrences;
    _squares += weight * weight * static_cast<double>(_weights.classCount());
    const double total = static_cast<double>(isDense(token.size) ? spread(token) : sumOf(token));
    const std::uint64_t bits = bitsOf(_weights.greatestBoost() * _weights.rarity(token.size) * total + 1.0);
    if (bits * occurrences > MOST_BITS) {
        collect(1.0);
        multiply(token, total, 1);
        collect(weight);
        return;
    }
    if (_bits + bits * occurrences > MOST_BITS) {
        normalise(_blocks, _weights.boosts().size());
        _bits = 1;
    }
    _bits += bits * occurrences;
    multiply(token, total, occurrences);
}

std::uint64_t ProductScoring::sumOf(const storage::FeatureRecords& token) {
    std::uint64_t sum = 0;
    for (std::uint32_t i = 0; i < token.size; ++i) {
        sum += token[i].count();
    }
    return sum;
}

std::uint64_t ProductScoring::spread(const storage::FeatureRecords& token) {
    std::uint64_t sum = 0;
    for (std::uint32_t i = 0; i < token.size; ++i) {
        const storage::Parameter& parameter = token[i];
        const std::size_t index = parameter.classIndex();
        const std::uint32_t count = parameter.count();
        _blocks[index / blockSize].count[index % blockSize] = count;
        sum += count;
    }
    return sum;
}

void ProductScoring::multiply(const storage::FeatureRecords& token, double total, std::uint32_t occurrences) {
    const double rarity = _weights.rarity(token.size);
    if (isDense(token.size)) {
        multiplyCounted(_weights.boosts(), _blocks, rarity, total, occurrences);
        return;
    }
    if (!_isPair) {
        multiplyOthers(_weights.boosts(), _blocks, rarity * total, occurrences);
    }
    for (std::uint32_t i = 0; i < token.size; ++i) {
        multiplyHolder(token[i], rarity, total, occurrences);
    }
}

void ProductScoring::multiplyHolder(const storage::Parameter& parameter, double rarity, double total,
                                    std::uint32_t occurrences) {
    const std::size_t lane = parameter.classIndex() % blockSize;
    Block& block = _blocks[parameter.classIndex() / blockSize];
    const ProductWeights::Boosts& boosts = _weights.boosts()[parameter.classIndex() / blockSize];
    const double count = parameter.count();
    block.own[lane] *= powerOf(boosts.own[lane] * rarity * count + 1.0, occurrences);
    // With two classes each is the other's complement, so the complement would count everything twice.
    if (!_isPair) {
        const double otherBoost = boosts.others[lane] * rarity;
        const double taken = otherBoost * total + OTHERS_SMOOTHING;
        const double right = otherBoost * (total - count) + OTHERS_SMOOTHING;
        block.correction[lane] *= powerOf(right / taken, occurrences);
    }
}

WIDEST_REGISTERS void ProductScoring::multiplyCounted(const std::vector<ProductWeights::Boosts>& boosts,
                                                      Block* blocks, double rarity, double total,
                                                      std::uint32_t occurrences) {
    // The bits of a double of 2^52 and more end with those of the whole number that was added.
    constexpr std::uint64_t WHOLE = 0x4330000000000000;
    constexpr double WHOLE_VALUE = 0x1p52;
    for (const ProductWeights::Boosts& boost : boosts) {
        Block& block = *blocks++;
        const Exponents bits =
            __builtin_convertvector(block.count, Exponents) | static_cast<std::int64_t>(WHOLE);
        const Lanes count = reinterpret_cast<Lanes>(bits) - WHOLE_VALUE;
        Lanes own = boost.own * rarity * count + 1.0;
        Lanes others = boost.others * rarity * (total - count) + OTHERS_SMOOTHING;
        for (std::uint32_t rest = occurrences; rest > 1; rest /= 2) {
            if (rest % 2 != 0) {
                block.own *= own;
                block.others *= others;
            }
            own *= own;
            others *= others;
        }
        block.own *= own;
        block.others *= others;
        block.count = Counts{};
    }
}

WIDEST_REGISTERS void ProductScoring::multiplyOthers(const std::vector<ProductWeights::Boosts>& boosts,
                                                     Block* blocks, double weightedTotal,
                                                     std::uint32_t occurrences) {
    for (const ProductWeights::Boosts& boost : boosts) {
        Block& block = *blocks++;
        Lanes others = boost.others * weightedTotal + OTHERS_SMOOTHING;
        for (std::uint32_t rest = occurrences; rest > 1; rest /= 2) {
            if (rest % 2 != 0) {
                block.others *= others;
            }
            others *= others;
        }
        block.others *= others;
    }
}

WIDEST_REGISTERS void ProductScoring::normalise(Block* blocks, std::size_t count) {
    constexpr std::int64_t MANTISSA = (std::int64_t{1} << MANTISSA_BITS) - 1;
    constexpr std::int64_t ONE = static_cast<std::int64_t>(EXPONENT_OF_ONE);
    for (Block* block = blocks; block != blocks + count; ++block) {
        const Exponents own = reinterpret_cast<Exponents>(block->own);
        const Exponents others = reinterpret_cast<Exponents>(block->others * block->correction);
        block->ownExponent += (own >> MANTISSA_BITS) - ONE;
        block->othersExponent += (others >> MANTISSA_BITS) - ONE;
        block->own = reinterpret_cast<Lanes>((own & MANTISSA) | (ONE << MANTISSA_BITS));
        block->others = reinterpret_cast<Lanes>((others & MANTISSA) | (ONE << MANTISSA_BITS));
        block->correction = Lanes{} + 1.0;
    }
}

void ProductScoring::collect(double power) {
    constexpr double LN_2 = 0.69314718055994530942;
    normalise(_blocks, _weights.boosts().size());
    for (std::size_t i = 0; i < _score.size(); ++i) {
        Block& block = _blocks[i / blockSize];
        const std::size_t lane = i % blockSize;
        const double ownExponent = static_cast<double>(block.ownExponent[lane]);
        if (_isPair) {
            _score[i] += power * (std::log(block.own[lane]) + ownExponent * LN_2);
        } else {
            const double quotient = block.own[lane] / twentiethPowerOf(block.others[lane]);
            const double exponent =
                OWN_EXPONENT * ownExponent - static_cast<double>(block.othersExponent[lane]);
            _score[i] += power * (OWN_EXPONENT * std::log(quotient) + exponent * LN_2);
        }
    }
    reset();
}

void ProductScoring::reset() {
    constexpr Lanes ONES = Lanes{} + 1.0;
    for (std::size_t i = 0; i < _weights.boosts().size(); ++i) {
        Block& block = _blocks[i];
        block.own = block.others = block.correction = ONES;
        block.ownExponent = block.othersExponent = Exponents{};
    }
    _bits = 0;
}

std::vector<double> ProductScoring::probabilities() {
    collect(1.0);
    turnIntoProbabilities(_score, _squares);
    return std::move(_score);
}

}  // namespace halvern::classifier
