#include "report/Metrics.h"

#include <gtest/gtest.h>

#include <cmath>

namespace halvern::morvane::client {
namespace {

// The figures were worked out by hand from the matrix a: 3 1 0, b: 0 2 0, c: 2 1 0, where c is never
// predicted. The guide on support mail shows those of an ordinary case.
TEST(MetricsTest, ClassThatIsNeverPredictedAndProbabilityOfNothingGiveNumbers) {
    std::vector<Outcome> outcomes;
    for (const std::string pair : {"aa", "aa", "aa", "ab", "bb", "bb", "ca", "cb", "ca"}) {
        outcomes.push_back({pair.substr(0, 1), pair.substr(1), 1.0, pair[0] == pair[1] ? 1.0 : 0.0, 0, 0.5});
    }
    const Metrics metrics = measure(outcomes, 10);
    EXPECT_DOUBLE_EQ(metrics.accuracy, 5.0 / 9);
    EXPECT_DOUBLE_EQ(metrics.macroPrecision, (0.6 + 0.5) / 3);
    EXPECT_DOUBLE_EQ(metrics.macroRecall, 1.75 / 3);
    EXPECT_DOUBLE_EQ(metrics.macroF1, (2.0 / 3 + 2.0 / 3) / 3);
    EXPECT_NEAR(metrics.logLoss, 4 * -std::log(1e-15) / 9, 1e-12);
    EXPECT_EQ(metrics.mostConfused(2).size(), 2u);
    EXPECT_EQ(metrics.mostConfused(1).at(0).count, 2u);
    EXPECT_EQ(measure({}, 4).texts, 0u);
}

TEST(MetricsTest, ConfidenceFallsIntoHalfOpenBinsAndItsDistanceFromTheTruthIsTheError) {
    // Four bins: the borders belong to the bin below them, 0 and nan to the first.
    const Metrics metrics = measure({{"a", "a", 0.25, 0.25, 0, -1},
                                     {"a", "b", 0.26, 0.1, 0, -1},
                                     {"a", "a", 1.0, 1.0, 0, -1},
                                     {"a", "b", 0.8, 0.2, 0, -1},
                                     {"a", "a", 0.0, 0.0, 0, -1}},
                                    4);
    const std::uint64_t counts[] = {2, 1, 0, 2};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(metrics.bins[i].count, counts[i]) << i;
    }
    EXPECT_DOUBLE_EQ(metrics.bins[3].confidence, 0.9);
    EXPECT_DOUBLE_EQ(metrics.bins[3].accuracy, 0.5);
    // 2/5 * |1 - 0.125| + 1/5 * |0 - 0.26| + 2/5 * |0.5 - 0.9|
    EXPECT_NEAR(metrics.expectedCalibrationError, 0.35 + 0.052 + 0.16, 1e-12);
    EXPECT_NEAR(metrics.maximumCalibrationError, 0.875, 1e-12);
    EXPECT_LT(metrics.textCoverage, 0) << "a mean over texts of which one isn't told would be made up";
    EXPECT_EQ(measure({{"a", "a", std::nan(""), 0, 0, 0}}, 4).bins[0].count, 1u);
}

TEST(MetricsTest, OutcomeSumsTheErrorOverAllClassesAlsoOfAClassThatTheClassifierDoesNotKnow) {
    const std::tuple<std::string, std::map<std::string, double>, std::string, double> rows[] = {
        {"a", {{"a", 0.5}, {"b", 0.3}, {"c", 0.2}}, "a", 0.25 + 0.09 + 0.04},
        {"b", {{"a", 0.5}, {"b", 0.5}}, "a", 0.5},
        {"z", {{"a", 0.25}, {"b", 0.75}}, "b", 1 + 0.0625 + 0.5625},
        {"a", {{"a", 0.0}, {"b", 0.0}}, "a", 1.0},
    };
    for (const auto& [actual, probabilities, predicted, squaredError] : rows) {
        const Outcome outcome = outcomeOf(actual, probabilities, 0.5);
        EXPECT_EQ(outcome.predicted, predicted);
        EXPECT_DOUBLE_EQ(outcome.squaredError, squaredError) << actual;
    }
}

}  // namespace
}  // namespace halvern::morvane::client
