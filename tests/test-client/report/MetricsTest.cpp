#include "report/Metrics.h"

#include <gtest/gtest.h>

#include <cmath>

namespace halvern::morvane::client {
namespace {

// The figures were worked out by hand from the matrix a: 3 1 0, b: 0 2 0, c: 1 1 0, where c is never
// predicted.
TEST(MetricsTest, ClassesAreScoredFromTheMatrix) {
    std::vector<Outcome> outcomes;
    const auto add = [&](const char* actual, const char* predicted, int times) {
        for (int i = 0; i < times; ++i) {
            outcomes.push_back(
                {actual, predicted, 1.0, actual == std::string(predicted) ? 1.0 : 0.0, 0, 0.5});
        }
    };
    add("a", "a", 3);
    add("a", "b", 1);
    add("b", "b", 2);
    add("c", "a", 1);
    add("c", "b", 1);
    const Metrics metrics = measure(outcomes, 10);
    EXPECT_DOUBLE_EQ(metrics.accuracy, 5.0 / 8);
    struct Row {
        double precision, recall, f1;
        std::uint64_t support, predicted;
    };
    const Row rows[] = {{0.75, 0.75, 0.75, 4, 4}, {0.5, 1, 2.0 / 3, 2, 4}, {0, 0, 0, 2, 0}};
    ASSERT_EQ(metrics.classes.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(metrics.classes[i].name);
        EXPECT_DOUBLE_EQ(metrics.classes[i].precision, rows[i].precision);
        EXPECT_DOUBLE_EQ(metrics.classes[i].recall, rows[i].recall);
        EXPECT_DOUBLE_EQ(metrics.classes[i].f1, rows[i].f1);
        EXPECT_EQ(metrics.classes[i].support, rows[i].support);
        EXPECT_EQ(metrics.classes[i].predicted, rows[i].predicted);
    }
    EXPECT_DOUBLE_EQ(metrics.macroPrecision, 1.25 / 3);
    EXPECT_DOUBLE_EQ(metrics.macroRecall, 1.75 / 3);
    EXPECT_DOUBLE_EQ(metrics.macroF1, (0.75 + 2.0 / 3) / 3);
    EXPECT_DOUBLE_EQ(metrics.textCoverage, 0.5);
    EXPECT_NEAR(metrics.logLoss, 3 * -std::log(1e-15) / 8, 1e-12) << "a probability of 0 must stay finite";

    const std::vector<Confusion> pairs = metrics.mostConfused(2);
    ASSERT_EQ(pairs.size(), 2u);
    EXPECT_EQ(pairs[0].actual, 0u);
    EXPECT_EQ(pairs[0].predicted, 1u);
}

TEST(MetricsTest, ConfidenceFallsIntoHalfOpenBinsAndItsDistanceFromTheTruthIsTheError) {
    // Four bins: the borders belong to the bin below them, 0 and nan to the first.
    std::vector<Outcome> outcomes = {{"a", "a", 0.25, 0.25, 0, -1},
                                     {"a", "b", 0.26, 0.1, 0, -1},
                                     {"a", "a", 1.0, 1.0, 0, -1},
                                     {"a", "b", 0.8, 0.2, 0, -1},
                                     {"a", "a", 0.0, 0.0, 0, -1}};
    const Metrics metrics = measure(outcomes, 4);
    const std::uint64_t counts[] = {2, 1, 0, 2};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(metrics.bins[i].count, counts[i]) << i;
    }
    EXPECT_DOUBLE_EQ(metrics.bins[0].confidence, 0.125);
    EXPECT_DOUBLE_EQ(metrics.bins[3].confidence, 0.9);
    EXPECT_DOUBLE_EQ(metrics.bins[3].accuracy, 0.5);
    // 2/5 * |1 - 0.125| + 1/5 * |0 - 0.26| + 2/5 * |0.5 - 0.9|
    EXPECT_NEAR(metrics.expectedCalibrationError, 0.35 + 0.052 + 0.16, 1e-12);
    EXPECT_NEAR(metrics.maximumCalibrationError, 0.875, 1e-12);
    EXPECT_LT(metrics.textCoverage, 0) << "a mean over texts of which one isn't told would be made up";

    outcomes = {{"a", "a", std::nan(""), 0, 0, 0}};
    EXPECT_EQ(measure(outcomes, 4).bins[0].count, 1u);
    EXPECT_EQ(measure({}, 4).texts, 0u);
}

TEST(MetricsTest, OutcomeSumsTheErrorOverAllClassesAlsoOfAClassThatTheClassifierDoesNotKnow) {
    struct Row {
        const char* actual;
        std::map<std::string, double> probabilities;
        const char* predicted;
        double confidence, actualPart, squaredError;
    };
    const Row rows[] = {
        {"a", {{"a", 0.5}, {"b", 0.3}, {"c", 0.2}}, "a", 0.5, 0.5, 0.25 + 0.09 + 0.04},
        {"b", {{"a", 0.5}, {"b", 0.5}}, "a", 0.5, 0.5, 0.5},
        {"z", {{"a", 0.25}, {"b", 0.75}}, "b", 0.75, 0.0, 1 + 0.0625 + 0.5625},
        {"a", {{"a", 0.0}, {"b", 0.0}}, "a", 0.0, 0.0, 1.0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.actual);
        const Outcome outcome = outcomeOf(row.actual, row.probabilities, 0.5);
        EXPECT_EQ(outcome.predicted, row.predicted);
        EXPECT_DOUBLE_EQ(outcome.confidence, row.confidence);
        EXPECT_DOUBLE_EQ(outcome.actualPart, row.actualPart);
        EXPECT_DOUBLE_EQ(outcome.squaredError, row.squaredError);
    }
}

}  // namespace
}  // namespace halvern::morvane::client
