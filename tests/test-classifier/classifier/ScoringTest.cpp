#include "classifier/Scoring.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "classifier/Classification.h"
#include "support/Classifiers.h"
#include "support/RecordingCallback.h"
#include "support/StoredClassifier.h"

namespace halvern::classifier {

namespace {

using support::classifierOf;
using support::StoredClassifier;

// Classes a, b, c, ... of these sizes, and what each of them holds of some words.
StoredClassifier learned(const std::vector<std::uint32_t>& sizes,
                         const std::vector<std::pair<std::string, std::vector<std::uint32_t>>>& words,
                         double smoothing = 0.05) {
    StoredClassifier stored{.extractorVersion = 3, .smoothing = smoothing};
    for (std::uint16_t i = 0; i < sizes.size(); ++i) {
        stored.classes.push_back({std::string(1, static_cast<char>('a' + i)), i, sizes[i], 1});
    }
    for (const auto& [word, counts] : words) {
        for (std::uint16_t i = 0; i < counts.size(); ++i) {
            if (counts[i] > 0) {
                stored.records.push_back({word, i, counts[i]});
            }
        }
    }
    return stored;
}

}  // namespace

// The expected numbers were worked out from the formula with 40 digits.
TEST(ScoringTest, WorkedExamples) {
    const StoredClassifier one = learned({9}, {{"x", {3}}});
    const StoredClassifier two = learned({9, 4}, {{"x", {3, 0}}, {"y", {1, 2}}});
    const StoredClassifier twoSmooth = learned({9, 4}, {{"x", {3, 0}}, {"y", {1, 2}}}, 1.5);
    const StoredClassifier three = learned({9, 4, 6}, {{"x", {3, 0, 0}}, {"y", {1, 2, 1}}});
    const StoredClassifier threeSmooth = learned({9, 4, 6}, {{"x", {3, 0, 0}}, {"y", {1, 2, 1}}}, 1.5);
    const StoredClassifier five = learned(
        {9, 4, 6, 2, 40},
        {{"v", {0, 0, 0, 2, 0}}, {"w", {1, 1, 1, 0, 1}}, {"x", {3, 0, 0, 0, 10}}, {"y", {1, 2, 1, 0, 0}}});
    // What all classes hold of "x" is more than 32 bits hold.
    const std::uint32_t most = 4294967294;
    const StoredClassifier full = learned({most + 1, most, 9}, {{"x", {most, most, 9}}, {"y", {1, 0, 0}}});
    const struct {
        const StoredClassifier& stored;
        std::string text;
        double coverage;
        std::vector<double> probabilities;
    } cases[] = {
        {one, "x z", 1.0 / 2, {1.0}},
        {one, "", 0.0, {1.0}},
        {two, "z X", 0.0, {0.5, 0.5}},
        {two, "x x y z", 2.0 / 3, {0.9977274321001256, 0.0022725678998743678}},
        {two, "x z x y x y z x", 2.0 / 3, {0.9977274321001256, 0.0022725678998743678}},
        {twoSmooth, "x x y z", 2.0 / 3, {0.77684524610061134, 0.22315475389938863}},
        {three, "", 0.0, {1.0 / 3, 1.0 / 3, 1.0 / 3}},
        {three, "x x y z", 2.0 / 3, {0.99104382531083468, 0.0060816320522924811, 0.0028745426368728196}},
        {threeSmooth, "x x y", 1.0, {0.98767500689926413, 0.0083140374841132111, 0.0040109556166226636}},
        {five,
         "x y y y v w w new",
         4.0 / 5,
         {0.16542342200038762, 0.46976519311431175, 0.14625872665496464, 0.21680500824543217,
          0.001747649984903805}},
        {full, "x x y", 1.0, {0.80419973873786288, 0.068823901664469403, 0.12697635959766776}},
    };
    for (const auto& row : cases) {
        Classification classification;
        classifierOf(row.stored.bytes())->classify(row.text, classification);
        EXPECT_DOUBLE_EQ(classification.getTextCoverage(), row.coverage) << row.text;
        ASSERT_EQ(classification.getProbabilities().size(), row.probabilities.size());
        auto expected = row.probabilities.begin();
        for (const auto& [name, probability] : classification.getProbabilities()) {
            EXPECT_NEAR(probability, *expected, *expected * 1e-12) << row.text << ", " << name;
            ++expected;
        }
    }
}

TEST(ScoringTest, SmoothingThatMakesNoSenseIsReportedAndAnswered) {
    support::RecordingCallbackFactory callbacks;
    Classification classification;
    const auto classify = [&](double smoothing) {
        const StoredClassifier stored = learned({1, 1}, {{"x", {1, 0}}, {"y", {0, 1}}}, smoothing);
        classifierOf(stored.bytes(), &callbacks)->clone()->classify("x y", classification);
    };
    classify(0.0);
    EXPECT_TRUE(callbacks.reports.empty());
    EXPECT_EQ(classification.getProbabilities().at("a"), 0.5) << "both classes are impossible";
    classify(std::nan(""));
    std::vector<std::string> expected;
    for (int i = 0; i < 2; ++i) {
        for (const char* text : {"fininte", "a number", "between 0 and 1 inclusive"}) {
            expected.push_back(
                std::string("ClassifierImpl failure|A probability is not ") + text +
                ". One of the normalized probabilities are not valid.|classifier/ClassifierImpl");
        }
    }
    EXPECT_EQ(callbacks.reports, expected);
    EXPECT_TRUE(std::isnan(classification.getProbabilities().at("b")));
}

TEST(KeywordsTest, TheyNeedAShareAboveTheMinimumAndTheFirstClassWinsTies) {
    // Equal class sizes and no smoothing, so that the shares are the shares of the counts.
    const std::string longest(30, 'q');
    const StoredClassifier unfolded = learned(
        {1000, 1000}, {{"even", {5, 5}}, {"just", {60, 40}}, {"more", {39, 61}}, {longest, {2, 1}}}, 0.0);
    StoredClassifier two = unfolded;
    two.extractorVersion = 4;
    const StoredClassifier one = learned({8}, {{"a", {1}}, {"b", {7}}});
    const struct {
        const StoredClassifier& stored;
        std::string text;
        double minimum;
        std::uint64_t limit;
        std::string keywords;  // "token:class:share:count"
    } cases[] = {
        {two, "just", 0.6, 30, ""},
        {two, "More, just MORE", 0.6, 30, "more:b:0.610:2 "},
        {two, "even", 0.5, 30, ""},
        {two, "even", 0.0, 30, "even:a:0.500:1 "},
        {two, "it's more&more <more> unknown", 0.0, 30, ""},
        {two, std::string(40, 'Q'), 0.6, 30, longest + ":a:0.667:1 "},
        {two, "just even more", 0.0, 2, "just:a:0.600:1 more:b:0.610:1 "},
        {two, "just even more", 0.0, 0, ""},
        {unfolded, "More more", 0.6, 30, "more:b:0.610:1 "},
        {one, "b c a", 0.0, 30, "b:a:1.000:1 a:a:1.000:1 "},
    };
    for (const auto& row : cases) {
        const auto classifier = classifierOf(row.stored.bytes());
        Keywords keywords(row.limit, row.minimum);
        classifier->classifyKeywords(row.text, keywords);
        std::string found;
        for (const auto& [token, length, probability, count, className] : keywords) {
            char share[32];
            std::snprintf(share, sizeof(share), ":%.3f:", probability);
            found += std::string(token, length) + ":" + className + share + std::to_string(count) + " ";
        }
        EXPECT_EQ(found, row.keywords) << row.text;
    }
}

// Words called a, b, c, ... are offered with these probabilities; of equals the first stays.
TEST(KeywordsTest, StrongestAreKeptInHeapOrder) {
    const struct {
        std::uint64_t limit;
        std::vector<double> offered;
        std::string kept;  // in the order of storage
    } cases[] = {
        {3, {0.9, 0.8, 0.7}, "cab"},      {3, {0.7, 0.8, 0.9}, "abc"},       {3, {0.9, 0.8, 0.7, 0.6}, "cab"},
        {3, {0.9, 0.8, 0.7, 0.7}, "cab"}, {3, {0.9, 0.8, 0.7, 0.85}, "bad"}, {1, {0.1, 0.3, 0.2, 0.3}, "b"},
    };
    for (const auto& row : cases) {
        const std::string names = "abcd";
        Keywords keywords(row.limit, 0.0);
        for (std::size_t i = 0; i < row.offered.size(); ++i) {
            keywords.offer(Keyword(&names[i], 1, row.offered[i], 1, "class"));
        }
        std::string kept;
        for (const Keyword& keyword : keywords) {
            kept += *keyword.token;
        }
        EXPECT_EQ(kept, row.kept);
    }
}

}  // namespace halvern::classifier
