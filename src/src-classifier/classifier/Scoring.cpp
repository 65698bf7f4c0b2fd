#include "classifier/Scoring.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace halvern::classifier {

namespace {

constexpr double SHARPNESS = 1.4;
constexpr double LEAST_EXPONENT = -746.0;  // the exponential of anything less is 0

}  // namespace

void boostsOf(const std::vector<storage::ClassEntry>& classes, double* classBoost, double* otherBoost) {
    const auto sizeOf = [](const storage::ClassEntry& entry) { return entry._count + 1.0; };
    double largest = 0.0;
    double sum = 0.0;
    for (const storage::ClassEntry& entry : classes) {
        largest = std::max(largest, sizeOf(entry));
        sum += sizeOf(entry);
    }
    const auto otherSizeOf = [&](const storage::ClassEntry& entry) { return (sum - sizeOf(entry)) + 1.0; };
    double largestOther = 0.0;
    for (const storage::ClassEntry& entry : classes) {
        largestOther = std::max(largestOther, otherSizeOf(entry));
    }
    for (std::size_t i = 0; i < classes.size(); ++i) {
        classBoost[i] = largest / sizeOf(classes[i]);
        otherBoost[i] = largestOther / otherSizeOf(classes[i]);
    }
}

double rarityOf(std::size_t classCount, std::size_t holders) {
    return classCount > 2 ? std::log(static_cast<double>(classCount) / static_cast<double>(holders)) + 1.0
                          : 1.0;
}

void turnIntoProbabilities(std::vector<double>& scores, double squares) {
    // The length of the text goes out, so that a long text isn't surer than a short one.
    const double scale = squares > 0.0 ? 1.0 / std::sqrt(squares) : 1.0;
    double best = std::numeric_limits<double>::lowest();
    for (double& score : scores) {
        score *= scale;
        best = score > best ? score : best;
    }
    const double classCount = static_cast<double>(scores.size());
    const double sharpness = classCount * SHARPNESS;
    double total = 0.0;
    for (double& score : scores) {
        // The library takes long to find that a power is too small for a double, as those of most of many
        // classes are.
        const double exponent = (score - best) * sharpness;
        score = exponent < LEAST_EXPONENT ? 0.0 : std::exp(exponent);
        total += score;
    }
    for (double& score : scores) {
        score = total == 0.0 ? 1.0 / classCount : score / total;
    }
}

Scoring::Scoring(const std::vector<storage::ClassEntry>& classes, double smoothing)
    : _classCount(classes.size()),
      _smoothing(smoothing),
      _powerOfNothing(std::pow(0.0 + smoothing, OWN_EXPONENT)),
      _classBoost(_classCount),
      _otherBoost(_classCount),
      _tokenValue(_classCount),
      _logScore(_classCount, 0.0) {
    boostsOf(classes, _classBoost.data(), _otherBoost.data());
}

void Scoring::evaluate(const storage::ParameterAccessor& token) {
    if (_classCount == 2) {
        evaluatePair(token);
    } else {
        evaluateMany(token);
    }
    _valueSum = 0.0;
    for (const double value : _tokenValue) {
        _valueSum += value;
    }
}

void Scoring::add(const storage::ParameterAccessor& token, std::uint32_t occurrences) {
    _found += 1.0;
    evaluate(token);
    const double weight = occurrences;
    for (std::size_t i = 0; i < _classCount; ++i) {
        _logScore[i] += std::log(_tokenValue[i]) * weight;
        // Once for each class, not for each token: the sharpness was chosen together with this.
        _squares += weight * weight;
    }
}

// With two classes each is the other's complement, so the complement would count everything twice.
void Scoring::evaluatePair(const storage::ParameterAccessor& token) {
    for (std::size_t i = 0; i < _classCount; ++i) {
        _tokenValue[i] = _classBoost[i] * token._parameters[i] + _smoothing;
    }
}

void Scoring::evaluateMany(const storage::ParameterAccessor& token) {
    const double rarity = rarityOf(_classCount, token.classes);
    // Added up anew because the accessor's total wraps at 32 bits. Below 2^53 the sum is exact as a double.
    std::uint64_t everywhere = 0;
    for (const std::uint32_t count : token._parameters) {
        everywhere += count;
    }
    const double total = static_cast<double>(everywhere);
    for (std::size_t i = 0; i < _classCount; ++i) {
        const double count = token._parameters[i];
        // Most classes don't hold most tokens, and the power is what costs most.
        const double own = token._parameters[i] == 0
                               ? _powerOfNothing
                               : std::pow(_classBoost[i] * rarity * count + _smoothing, OWN_EXPONENT);
        _tokenValue[i] = own / (_otherBoost[i] * rarity * (total - count) + OTHERS_SMOOTHING);
    }
}

std::vector<double> Scoring::probabilities() const {
    std::vector<double> result = _logScore;
    turnIntoProbabilities(result, _squares);
    return result;
}

}  // namespace halvern::classifier
