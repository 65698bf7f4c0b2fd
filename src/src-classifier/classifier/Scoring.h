#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "classifier/storage/StorageTypes.h"

namespace halvern::classifier {

// How far the counts of a class are scaled up to those of the largest, and the same for all other classes
// taken together. Each array takes as many numbers as there are classes.
void boostsOf(const std::vector<storage::ClassEntry>& classes, double* classBoost, double* otherBoost);

// How much more a feature says that only so many of the classes hold.
double rarityOf(std::size_t classCount, std::size_t holders);

// Turns the score of each class into its probability. squares is the squared length of the text.
void turnIntoProbabilities(std::vector<double>& scores, double squares);

constexpr double OWN_EXPONENT =
    0.05;  // happens to equal the smoothing of new classifiers, but has nothing to do with it
constexpr double OTHERS_SMOOTHING = 0.6;

// The arithmetic of one classification: known tokens go in, one probability for each class comes out.
//
// This is the formula as it is defined, for keywords, which need the value of each token, and for any
// smoothing. A weighted, smoothed relative of naive Bayes without a prior: a class's size only scales the
// counts of small classes up to those of the largest. Every sum and product is a double in exactly the order
// written here; another order would change the last digits that clients see, and the choice between keywords
// of almost equal share.
class Scoring {
public:
    // Requires at least one class.
    Scoring(const std::vector<storage::ClassEntry>& classes, double smoothing);

    // Finds out how strongly a token speaks for each class. Requires that at least one class holds it.
    void evaluate(const storage::ParameterAccessor& token);
    // The same for a token that occurs so many times in the text, which it takes in.
    void add(const storage::ParameterAccessor& token, std::uint32_t occurrences);

    // How strongly the last token speaks for each class, and the sum of these values.
    const std::vector<double>& tokenValue() const { return _tokenValue; }
    double valueSum() const { return _valueSum; }

    // How many tokens were taken in.
    double found() const { return _found; }

    // The probabilities of the classes. They are valid numbers unless the smoothing isn't positive.
    std::vector<double> probabilities() const;

private:
    void evaluatePair(const storage::ParameterAccessor& token);
    void evaluateMany(const storage::ParameterAccessor& token);

    std::size_t _classCount;
    double _smoothing;
    double _powerOfNothing;           // the numerator of a class that doesn't hold the token
    std::vector<double> _classBoost;  // scales the counts of a class up to those of the largest
    std::vector<double> _otherBoost;  // the same for all other classes taken together
    std::vector<double> _tokenValue;
    std::vector<double> _logScore;
    double _valueSum = 0.0;
    double _found = 0.0;
    double _squares = 0.0;
};

}  // namespace halvern::classifier
