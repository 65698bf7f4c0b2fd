#include "classifier/Scoring.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <sstream>
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

// Requires these probabilities, in the order of the classes' names, with at most this relative difference.
// Numbers of less than full precision can only be compared as such.
void expectProbabilities(const Classification& classification, const std::vector<double>& expected,
                         double difference) {
    constexpr double FULL_PRECISION = 1e-300;
    ASSERT_EQ(classification.getProbabilities().size(), expected.size());
    auto next = expected.begin();
    for (const auto& [name, probability] : classification.getProbabilities()) {
        if (std::isnan(*next)) {
            EXPECT_TRUE(std::isnan(probability)) << name;
        } else {
            EXPECT_NEAR(probability, *next, std::max(*next * difference, FULL_PRECISION)) << name;
        }
        ++next;
    }
}

// The probabilities by the formula as it is written down, one step behind the other and without a short cut.
std::vector<double> plainProbabilities(const StoredClassifier& stored, const std::string& text) {
    const std::size_t classes = stored.classes.size();
    const double classCount = static_cast<double>(classes);
    std::map<std::string, std::vector<std::uint32_t>> learned;
    for (const auto& [feature, classIndex, count] : stored.records) {
        learned.try_emplace(feature, classes).first->second[classIndex] = count;
    }
    std::map<std::string, double> occurrences;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        ++occurrences[word];
    }
    double largest = 0.0;
    double sum = 0.0;
    for (const auto& entry : stored.classes) {
        largest = std::max(largest, entry.count + 1.0);
        sum += entry.count + 1.0;
    }
    double largestOther = 0.0;
    for (const auto& entry : stored.classes) {
        largestOther = std::max(largestOther, sum - (entry.count + 1.0) + 1.0);
    }
    std::vector<double> scores(classes, 0.0);
    double squares = 0.0;
    for (const auto& [word, times] : occurrences) {
        const auto known = learned.find(word);
        if (known == learned.end()) {
            continue;
        }
        double holders = 0.0;
        double total = 0.0;
        for (const std::uint32_t count : known->second) {
            holders += count > 0 ? 1.0 : 0.0;
            total += count;
        }
        const double weight = classes > 2 ? std::log(classCount / holders) + 1.0 : 1.0;
        for (std::size_t i = 0; i < classes; ++i) {
            const double size = stored.classes[i].count + 1.0;
            const double boost = largest / size;
            const double otherBoost = largestOther / (sum - size + 1.0);
            const double count = known->second[i];
            const double value = classes == 2 ? boost * count + stored.smoothing
                                              : std::pow(boost * weight * count + stored.smoothing, 0.05) /
                                                    (otherBoost * weight * (total - count) + 0.6);
            scores[i] += std::log(value) * times;
            squares += times * times;
        }
    }
    double best = std::numeric_limits<double>::lowest();
    for (double& score : scores) {
        score *= squares > 0.0 ? 1.0 / std::sqrt(squares) : 1.0;
        best = score > best ? score : best;
    }
    double total = 0.0;
    for (double& score : scores) {
        score = std::exp((score - best) * (classCount * 1.4));
        total += score;
    }
    for (double& score : scores) {
        score = total == 0.0 ? 1.0 / classCount : score / total;
    }
    return scores;
}

// Mostly small numbers, as texts bring them, and now and then one at either end of its range.
std::uint32_t randomCount(std::mt19937& random, std::uint32_t least) {
    switch (random() % 8) {
        case 0:
            return least;
        case 1:
            return UINT32_MAX - random() % 3;
        case 2:
            return static_cast<std::uint32_t>(random());
        default:
            return least + static_cast<std::uint32_t>(random() >> (random() % 28 + 4));
    }
}

// A classifier whose totals need not fit its records, as stored data may have it. Its words are "w0", "w1",
// ...
StoredClassifier randomClassifier(std::mt19937& random, std::uint32_t words) {
    const std::size_t classCounts[] = {1, 2, 2, 3, 4, 5, 7, 20, 79, 80};
    const double smoothings[] = {1.5,     1e-9, 1e-300, 5e-324, 1e9,      1e300,
                                 1.7e308, 0.0,  -0.01,  -1e300, HUGE_VAL, std::nan("")};
    StoredClassifier stored{.extractorVersion = 3};
    stored.smoothing = random() % 3 != 0 ? 0.05 : smoothings[random() % std::size(smoothings)];
    const std::size_t classes = classCounts[random() % std::size(classCounts)];
    const bool isExtreme = random() % 2 == 0;
    const auto count = [&](std::uint32_t least) {
        return isExtreme ? randomCount(random, least) : least + static_cast<std::uint32_t>(random() % 50);
    };
    for (std::uint16_t i = 0; i < classes; ++i) {
        // Two digits, so that the order of names is the order of the table.
        stored.classes.push_back({std::to_string(10 + i), i, count(0) * (isExtreme ? 1 : 40), 1});
    }
    const unsigned rarity = 1 + random() % 20;
    std::map<std::string, std::vector<std::uint32_t>> ordered;
    for (std::uint32_t word = 0; word < words; ++word) {
        for (std::uint16_t i = 0; i < classes; ++i) {
            if (random() % rarity == 0) {
                ordered["w" + std::to_string(word)].resize(classes);
                ordered["w" + std::to_string(word)][i] = count(1);
            }
        }
    }
    for (const auto& [word, counts] : ordered) {
        for (std::uint16_t i = 0; i < classes; ++i) {
            if (counts[i] > 0) {
                stored.records.push_back({word, i, counts[i]});
            }
        }
    }
    return stored;
}

std::string randomText(std::mt19937& random, std::uint32_t words) {
    const std::uint32_t lengths[] = {0, 1, 5, 30, 30, 30, 300, 5000};
    const std::uint32_t length = lengths[random() % std::size(lengths)];
    const std::uint32_t favourites = 1 + random() % 5;
    std::string text;
    for (std::uint32_t i = 0; i < length; ++i) {
        text += "w" + std::to_string(random() % (random() % 3 == 0 ? favourites : words + 9)) + " ";
    }
    return text;
}

}  // namespace

// A unit of the sixth digit, which is the last that a response shows, is 1e-6 of a number at the least; the
// engine does better.
TEST(ScoringTest, RandomClassifiersAnswerAsThePlainFormulaDoes) {
    std::mt19937 random(20);
    support::RecordingCallbackFactory callbacks;
    for (int round = 0; round < 100 && !HasFailure(); ++round) {
        const std::uint32_t words = random() % 10 == 0 ? 3000 : 40;
        const StoredClassifier stored = randomClassifier(random, words);
        const auto classifier = classifierOf(stored.bytes(), &callbacks);
        for (int i = 0; i < 4; ++i) {
            const std::string text = randomText(random, words);
            SCOPED_TRACE("round " + std::to_string(round) + ", smoothing " +
                         std::to_string(stored.smoothing) + ", bytes " + std::to_string(text.size()));
            Classification classification;
            classifier->classify(text, classification);
            expectProbabilities(classification, plainProbabilities(stored, text), 1e-8);
        }
    }
}

// The expected numbers were worked out from the formula with 40 digits.
TEST(ScoringTest, WorkedExamples) {
    const StoredClassifier one = learned({9}, {{"x", {3}}});
    const StoredClassifier two = learned({9, 4}, {{"x", {3, 0}}, {"y", {1, 2}}});
    const StoredClassifier three = learned({9, 4, 6}, {{"x", {3, 0, 0}}, {"y", {1, 2, 1}}});
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
        {two, "z X", 0.0, {0.5, 0.5}},
        {two, "x x y z", 2.0 / 3, {0.9977274321001256, 0.0022725678998743678}},
        {three, "", 0.0, {1.0 / 3, 1.0 / 3, 1.0 / 3}},
        {three, "x x y z", 2.0 / 3, {0.99104382531083468, 0.0060816320522924811, 0.0028745426368728196}},
        {full, "x x y", 1.0, {0.80419973873786288, 0.068823901664469403, 0.12697635959766776}},
    };
    for (const auto& row : cases) {
        Classification classification;
        classifierOf(row.stored.bytes())->classify(row.text, classification);
        EXPECT_DOUBLE_EQ(classification.getTextCoverage(), row.coverage) << row.text;
        SCOPED_TRACE(row.text);
        expectProbabilities(classification, row.probabilities, 1e-12);
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
    EXPECT_EQ(callbacks.reports.size(), 6u) << "three for each class";
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
        {two, "More, just MORE", 0.6, 30, "more:b:0.610:2 "},
        {two, "even", 0.5, 30, ""},
        {two, "even", 0.0, 30, "even:a:0.500:1 "},
        {two, "it's more&more <more> unknown", 0.0, 30, ""},
        {two, std::string(40, 'Q'), 0.6, 30, longest + ":a:0.667:1 "},
        {two, "just even more", 0.0, 2, "just:a:0.600:1 more:b:0.610:1 "},
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
        {3, {0.7, 0.8, 0.9}, "abc"},
        {3, {0.9, 0.8, 0.7, 0.7}, "cab"},
        {3, {0.9, 0.8, 0.7, 0.85}, "bad"},
        {1, {0.1, 0.3, 0.2, 0.3}, "b"},
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
