#include "files/Arithmetic.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>

#include "Failure.h"
#include "support/Classifiers.h"
#include "support/StoredClassifier.h"

namespace halvern::morvane::client::files {
namespace {

struct Lesson {
    std::string className;
    std::string text;
};

// The bytes of a classifier that learned these texts in this order, each class made when it first appears.
util::Bytes trained(const std::vector<Lesson>& lessons) {
    classifier::ClassifierImpl classifier(nullptr, 0.05);
    for (const Lesson& lesson : lessons) {
        if (!classifier.classExists(lesson.className)) {
            classifier.addClass(lesson.className);
        }
        classifier.train(lesson.className, lesson.text);
    }
    classifier.compact();
    return support::bytesOf(classifier);
}

std::vector<Lesson> operator+(std::vector<Lesson> left, const std::vector<Lesson>& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// Few words and classes, so that features meet in all combinations of sides and classes; the words have
// bytes on both sides of 0x80.
std::vector<Lesson> randomLessons(std::mt19937& random) {
    const char* const words[] = {
        "a",    "b",           "\xff\xfe",         "\x01",
        "word", "longer word", "\xd0\xbf\xd1\x80", "a-feature-of-thirty-bytes-or-more-than-that"};
    std::vector<Lesson> lessons(random() % 12);
    for (Lesson& lesson : lessons) {
        lesson.className = std::string(1, static_cast<char>('A' + random() % 5));
        for (std::size_t length = random() % 8; length > 0; --length) {
            lesson.text += std::string(words[random() % std::size(words)]) + " ";
        }
    }
    return lessons;
}

std::string refusalOf(util::Bytes (*operation)(const ClassifierFile&, const ClassifierFile&),
                      const support::StoredClassifier& left, const support::StoredClassifier& right) {
    try {
        operation(makeClassifier("L", left.bytes()), makeClassifier("R", right.bytes()));
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code, ExitCode::DIFFERENT);
        return failure.message;
    }
    return "no failure";
}

TEST(ArithmeticTest, GivesTheBytesOfTrainingAndUntraining) {
    for (unsigned seed = 0; seed < 500; ++seed) {
        std::mt19937 random(seed);
        const std::vector<Lesson> first = randomLessons(random);
        const std::vector<Lesson> second = randomLessons(random);
        const util::Bytes both =
            merged(makeClassifier("1", trained(first)), makeClassifier("2", trained(second)));
        ASSERT_EQ(both, trained(first + second)) << "seed " << seed;
        // The classes stay, also those that only the second had.
        std::vector<Lesson> rest = first;
        for (const Lesson& lesson : second) {
            rest.push_back({lesson.className, ""});
        }
        ASSERT_EQ(difference(makeClassifier("1+2", both), makeClassifier("2", trained(second))),
                  trained(rest))
            << "seed " << seed;
    }
}

// The extractors make no features of 0 and 31 bytes, but the format has room for them.
TEST(ArithmeticTest, KnowsTheOuterLanesAndTheLargestCounts) {
    const std::string longest(31, 'l');
    const support::StoredClassifier left{.classes = {{"a", 0, UINT32_MAX, 3}},
                                         .records = {{"", 0, 1}, {"x", 0, UINT32_MAX - 2}, {longest, 0, 1}}};
    const support::StoredClassifier right{.classes = {{"b", 0, UINT32_MAX, 1}, {"a", 1, 0, 0}},
                                          .records = {{longest, 0, UINT32_MAX}}};
    const support::StoredClassifier both{
        .classes = {{"a", 0, UINT32_MAX, 3}, {"b", 1, UINT32_MAX, 1}},
        .records = {{"", 0, 1}, {"x", 0, UINT32_MAX - 2}, {longest, 0, 1}, {longest, 1, UINT32_MAX}}};
    EXPECT_EQ(merged(makeClassifier("L", left.bytes()), makeClassifier("R", right.bytes())), both.bytes());
    EXPECT_TRUE(inspect(both.bytes(), 1).isSound());
}

TEST(ArithmeticTest, RefusesWhatCanNotBeExact) {
    const support::StoredClassifier one{.classes = {{"a", 0, 1, 1}}, .records = {{"x", 0, 1}}};
    support::StoredClassifier otherExtractor = one;
    otherExtractor.extractorVersion = 4;
    support::StoredClassifier otherSmoothing = one;
    otherSmoothing.smoothing = 0.5;
    const support::StoredClassifier full{.classes = {{"a", 0, UINT32_MAX, 1}},
                                         .records = {{"x", 0, UINT32_MAX}}};
    const support::StoredClassifier fullOfY{.classes = {{"a", 0, UINT32_MAX, 1}},
                                            .records = {{"y", 0, UINT32_MAX}}};
    const support::StoredClassifier stranger{.classes = {{"b", 0, 1, 1}}, .records = {{"x", 0, 1}}};
    const support::StoredClassifier emptyStranger{.classes = {{"b", 0, 0, 0}}};
    support::StoredClassifier classes;
    for (std::uint16_t i = 0; i < 65535; ++i) {
        classes.classes.push_back({"class " + std::to_string(i), i, 0, 0});
    }
    EXPECT_EQ(
        refusalOf(merged, one, otherExtractor),
        "L has extractor version 5, R has 4. They cut up texts in different ways, so their counts can't be "
        "added.");
    EXPECT_EQ(refusalOf(difference, one, otherSmoothing),
              "L has the smoothing constant 0.050000, R has 0.500000.");
    EXPECT_EQ(
        refusalOf(merged, full, one),
        "Together they count the feature \"x\" in the class \"a\" 4294967296 times, and 4294967295 is the "
        "most that can be stored.");
    EXPECT_EQ(
        refusalOf(merged, fullOfY, one),
        "The class \"a\" would have a total count of 4294967296, and 4294967295 is the most it can hold.");
    EXPECT_EQ(refusalOf(merged, classes, one),
              "The result would have 65536 classes, and a classifier holds at most 65535.");
    EXPECT_EQ(refusalOf(difference, one, full),
              "R counts the feature \"x\" in the class \"a\" 4294967294 times more than L.");
    EXPECT_EQ(refusalOf(difference, fullOfY, one),
              "R counts the feature \"x\" in the class \"a\" 1 times more than L.");
    EXPECT_EQ(refusalOf(difference, one, stranger),
              "R has learned texts of the class \"b\", which L doesn't have.");
    EXPECT_EQ(refusalOf(difference, one, emptyStranger), "no failure");
    support::StoredClassifier damaged = one;
    damaged.classes[0].count = 2;
    EXPECT_EQ(
        refusalOf(merged, one, damaged),
        "R is damaged: at byte 25, class row 0 (\"a\"): the total is 2, and the counts of its records sum up "
        "to 1.");
}

TEST(ArithmeticTest, HoldsOnRealTexts) {
    const char* const folder = std::getenv("MORVANE_DATA");
    if (folder == nullptr) {
        GTEST_SKIP() << "MORVANE_DATA names no folder with data sets";
    }
    for (const std::string set : {"sms", "agmini", "banking77"}) {
        std::ifstream in(std::string(folder) + "/" + set + "/train.tsv", std::ios::binary);
        std::vector<Lesson> halves[2];
        std::vector<Lesson> all;
        for (Lesson lesson; std::getline(in, lesson.className, '\t') && std::getline(in, lesson.text);) {
            all.push_back(lesson);
        }
        ASSERT_GT(all.size(), 1000) << set;
        for (std::size_t i = 0; i < all.size(); ++i) {
            halves[i < all.size() / 2 ? 0 : 1].push_back(all[i]);
        }
        const util::Bytes both =
            merged(makeClassifier("1", trained(halves[0])), makeClassifier("2", trained(halves[1])));
        EXPECT_TRUE(both == trained(all)) << set;
        EXPECT_TRUE(inspect(both, 1).isSound()) << set;
    }
}

}  // namespace
}  // namespace halvern::morvane::client::files
