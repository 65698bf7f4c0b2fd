#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace halvern::morvane::client {

// What the server said about one text of a known class.
struct Outcome {
    std::string actual;
    std::string predicted;
    double confidence = 0;  // the probability of the predicted class
    double actualPart =
        0;  // the probability of the actual class; 0 if the classifier doesn't know that class
    double squaredError = 0;   // brierScore of this text
    double textCoverage = -1;  // negative: the server didn't tell
};

// Makes an outcome of the probabilities of all classes. Equal probabilities go to the first name in byte
// order.
Outcome outcomeOf(const std::string& actual, const std::map<std::string, double>& probabilities,
                  double textCoverage);

struct ClassScore {
    std::string name;
    std::uint64_t support = 0;    // texts of this class
    std::uint64_t predicted = 0;  // texts that the classifier puts into it
    std::uint64_t hits = 0;       // both
    double precision = 0;         // hits / predicted; 0 without any
    double recall = 0;            // hits / support; 0 without any
    double f1 = 0;  // harmonic mean of both (van Rijsbergen, "Information Retrieval", 1979); 0 without hits
};

// The texts whose confidence lies in (lower, upper]; the first bin holds 0 as well.
struct ReliabilityBin {
    double lower = 0;
    double upper = 0;
    std::uint64_t count = 0;
    double confidence = 0;  // mean
    double accuracy = 0;
};

struct Confusion {
    std::size_t actual = 0;  // indexes into the classes
    std::size_t predicted = 0;
    std::uint64_t count = 0;
};

struct Metrics {
    std::uint64_t texts = 0;
    double accuracy = 0;
    // Plain means over all classes that occur, in the texts or in the answers. The F1 is the mean of the
    // classes' F1 (Opitz and Burst, "Macro F1 and Macro F1", 2019).
    double macroPrecision = 0;
    double macroRecall = 0;
    double macroF1 = 0;
    double textCoverage = -1;  // mean; negative: not told
    // Mean distance of confidence and accuracy over equal bins, weighted by their texts, and the largest
    // distance (Guo et al., "On Calibration of Modern Neural Networks", 2017).
    double expectedCalibrationError = 0;
    double maximumCalibrationError = 0;
    // Mean of -ln(p of the actual class), p taken as 1e-15 where it is less, so that one text can't make it
    // infinite.
    double logLoss = 0;
    // Mean over the texts of the sum over all classes of the squared error of p, 0 to 2 (Brier, "Verification
    // of Forecasts Expressed in Terms of Probability", 1950).
    double brierScore = 0;
    std::vector<ClassScore> classes;                 // in byte order of the names
    std::vector<std::vector<std::uint64_t>> matrix;  // [actual][predicted], as in classes
    std::vector<ReliabilityBin> bins;

    // The pairs of different classes that were taken for each other, most frequent first, at most so many.
    std::vector<Confusion> mostConfused(std::size_t limit) const;
};

// Requires bins > 0.
Metrics measure(const std::vector<Outcome>& outcomes, std::size_t bins);

}  // namespace halvern::morvane::client
