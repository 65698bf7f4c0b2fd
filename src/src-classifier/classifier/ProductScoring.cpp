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

// Requires a value of at least 1/2: the whole number above its binary logarithm, and at least 1.
std::uint64_t bitsOf(double value) {
    const std::uint64_t exponent = std::bit_cast<std::uint64_t>(value) >> 52;
    return std::max<std::uint64_t>(exponent, 1023) - 1022;
}

double powerOf(double base, std::uint32_t exponent) {
    double power = 1.0;
    for (; exponent > 1; exponent /= 2) {
        power *= exponent % 2 != 0 ? base : 1.0;
        base *= base;
    }
    return power * base;
}

}  // namespace

ProductScoring::ProductScoring(const std::vector<storage::ClassEntry>& classes, double smoothing)
    : _classCount(classes.size()),
      _blocks((_classCount + blockSize - 1) / blockSize),
      _score(2 * _classCount),
      _rarity(_classCount + 1) {
    boostsOf(classes, _score.data(), _score.data() + _classCount);
    for (Block& block : _blocks) {
        block.own = block.others = block.correction = Lanes{} + 1.0;
    }
    for (std::size_t i = 0; i < _classCount; ++i) {
        Block& block = _blocks[i / blockSize];
        const double ownBoost = _score[i] / smoothing;
        const double otherBoost = _score[_classCount + i];
        block.ownBoost[i % blockSize] = ownBoost;
        block.otherBoost[i % blockSize] = otherBoost;
        _greatestBoost = std::max({_greatestBoost, ownBoost, otherBoost});
    }
    _score.assign(_classCount, 0.0);
}

double ProductScoring::rarity(std::size_t holders) {
    double& known = _rarity[holders];
    if (known < 1.0) {
        known = rarityOf(_classCount, holders);
    }
    return known;
}

void ProductScoring::add(const storage::FeatureRecords& token, std::uint32_t occurrences) {
    _found += 1.0;
    const double weight = occurrences;
    _squares += weight * weight * static_cast<double>(_classCount);
    std::int64_t everywhere = 0;
    for (std::uint32_t i = 0; i < token.size; ++i) {
        everywhere += token[i].count();
    }
    const double total = static_cast<double>(everywhere);
    const double rare = rarity(token.size);
    const std::uint64_t bits = bitsOf(_greatestBoost * rare * total + 1.0);
    const bool isOften = bits * occurrences > MOST_BITS;
    if (isOften || _bits + bits * occurrences > MOST_BITS) {
        flush(1.0);
    }
    const std::uint32_t power = isOften ? 1 : occurrences;
    _bits += bits * power;
    multiply(token, rare, total, power);
    if (isOften) {
        flush(weight);
    }
}

void ProductScoring::multiply(const storage::FeatureRecords& token, double rarity, double total,
                              std::uint32_t occurrences) {
    constexpr std::uint32_t MANY = 8;
    if (_classCount > 2 && token.size > MANY) {
        for (std::uint32_t i = 0; i < token.size; ++i) {
            const storage::Parameter& parameter = token[i];
            const std::size_t index = parameter.classIndex();
            _blocks[index / blockSize].count[index % blockSize] = parameter.count();
        }
        multiplyCounted(_blocks, rarity, total, occurrences);
        return;
    }
    // With two classes each is the other's complement, so the complement would count everything twice.
    if (_classCount != 2) {
        multiplyOthers(_blocks, rarity * total, occurrences);
    }
    for (std::uint32_t i = 0; i < token.size; ++i) {
        const storage::Parameter& parameter = token[i];
        Block& block = _blocks[parameter.classIndex() / blockSize];
        const std::size_t lane = parameter.classIndex() % blockSize;
        const double count = parameter.count();
        block.own[lane] *= powerOf(block.ownBoost[lane] * rarity * count + 1.0, occurrences);
        if (_classCount != 2) {
            const double otherBoost = block.otherBoost[lane] * rarity;
            const double taken = otherBoost * total + OTHERS_SMOOTHING;
            const double right = otherBoost * (total - count) + OTHERS_SMOOTHING;
            block.correction[lane] *= powerOf(right / taken, occurrences);
        }
    }
}

WIDEST_REGISTERS void ProductScoring::multiplyCounted(std::vector<Block>& blocks, double rarity, double total,
                                                      std::uint32_t occurrences) {
    for (Block& block : blocks) {
        Lanes own = block.ownBoost * rarity * block.count + 1.0;
        Lanes others = block.otherBoost * rarity * (total - block.count) + OTHERS_SMOOTHING;
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
        block.count = Lanes{};
    }
}

WIDEST_REGISTERS void ProductScoring::multiplyOthers(std::vector<Block>& blocks, double weightedTotal,
                                                     std::uint32_t occurrences) {
    for (Block& block : blocks) {
        Lanes others = block.otherBoost * weightedTotal + OTHERS_SMOOTHING;
        for (std::uint32_t rest = occurrences; rest > 1; rest /= 2) {
            if (rest % 2 != 0) {
                block.others *= others;
            }
            others *= others;
        }
        block.others *= others;
    }
}

void ProductScoring::flush(double power) {
    for (std::size_t i = 0; i < _classCount; ++i) {
        const Block& block = _blocks[i / blockSize];
        const std::size_t lane = i % blockSize;
        const double own = std::log(block.own[lane]);
        _score[i] += power * (_classCount == 2 ? own
                                               : OWN_EXPONENT * own -
                                                     std::log(block.others[lane] * block.correction[lane]));
    }
    for (Block& block : _blocks) {
        block.own = block.others = block.correction = Lanes{} + 1.0;
    }
    _bits = 0;
}

std::vector<double> ProductScoring::probabilities() {
    flush(1.0);
    turnIntoProbabilities(_score, _squares);
    return std::move(_score);
}

}  // namespace halvern::classifier
