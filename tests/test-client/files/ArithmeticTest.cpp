#include "files/Arithmetic.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/ClientRun.h"
#include "test-client/files/Learned.h"

namespace halvern::morvane::client::files {
namespace {

Learned sumOf(const Learned& left, const Learned& right) {
    Learned sum = left;
    for (const std::string& name : right.classes) {
        if (std::count(left.classes.begin(), left.classes.end(), name) == 0) {
            sum.classes.push_back(name);
        }
    }
    for (const auto& [key, count] : right.counts) {
        const auto place = std::find(sum.classes.begin(), sum.classes.end(), right.classes[key.second]);
        sum.counts[{key.first, place - sum.classes.begin()}] += count;
    }
    return sum;
}

TEST(ArithmeticTest, AddsAndTakesOffEachRecordAndKeepsAllClasses) {
    for (unsigned seed = 0; seed < 500; ++seed) {
        std::mt19937 random(seed);
        const Learned left = randomLearned(random);
        const Learned right = randomLearned(random);
        const Learned both = sumOf(left, right);
        const ClassifierFile second = makeClassifier("2", right.stored().bytes());
        ASSERT_EQ(merged(makeClassifier("1", left.stored().bytes()), second), both.stored().bytes())
            << "seed " << seed;
        ASSERT_EQ(difference(makeClassifier("1+2", both.stored().bytes()), second),
                  (Learned{both.classes, left.counts}.stored().bytes()))
            << "seed " << seed;
    }
}

TEST(ArithmeticTest, RefusesWhatCanNotBeExact) {
    const auto learned = [](const char* className, const char* feature, std::uint32_t count) {
        return Learned{{className}, {{{feature, 0}, count}}}.stored();
    };
    const support::StoredClassifier one = learned("a", "x", 1);
    const support::StoredClassifier full = learned("a", "x", UINT32_MAX);
    support::StoredClassifier otherExtractor = one;
    otherExtractor.extractorVersion = 4;
    support::StoredClassifier otherSmoothing = one;
    otherSmoothing.smoothing = 0.5;
    support::StoredClassifier damaged = one;
    damaged.classes[0].count = 2;
    support::StoredClassifier classes;
    for (std::uint16_t i = 0; i < 65535; ++i) {
        classes.classes.push_back({std::to_string(i), i, 0, 0});
    }
    const struct {
        util::Bytes (*operation)(const ClassifierFile&, const ClassifierFile&);
        const support::StoredClassifier& left;
        const support::StoredClassifier right;
        const char* words;
    } cases[] = {
        {merged, one, otherExtractor, "L has extractor version 5, R has 4."},
        {difference, one, otherSmoothing, "L has the smoothing constant 0.050000, R has 0.500000."},
        {merged, full, one, "they count the feature \"x\" in the class \"a\" 4294967296 times, and"},
        {merged, full, learned("a", "y", 1), "The class \"a\" would have a total count of 4294967296, and"},
        {merged, classes, one, "The result would have 65536 classes,"},
        {difference, one, full,
         "R counts the feature \"x\" in the class \"a\" 4294967294 times more than L."},
        {difference, full, learned("a", "y", 1),
         "R counts the feature \"y\" in the class \"a\" 1 times more"},
        {difference, one, learned("b", "x", 1), "R has learned texts of the class \"b\", which L doesn't"},
        {merged, one, damaged, "R is damaged: at byte 25, class row 0 (\"a\"): the total is 2, and"},
    };
    for (const auto& each : cases) {
        const Failure failure = support::clientFailureOf([&] {
            each.operation(makeClassifier("L", each.left.bytes()), makeClassifier("R", each.right.bytes()));
        });
        EXPECT_EQ(failure.code, ExitCode::DIFFERENT) << each.words;
        EXPECT_NE(failure.message.find(each.words), std::string::npos) << failure.message;
    }
}

}  // namespace
}  // namespace halvern::morvane::client::files
