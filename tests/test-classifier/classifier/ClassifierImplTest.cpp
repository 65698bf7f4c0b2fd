#include "classifier/ClassifierImpl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>

#include "classifier/ClassifierException.h"
#include "support/Classifiers.h"
#include "support/Failure.h"
#include "support/StoredClassifier.h"

namespace halvern::classifier {

using support::bytesOf;
using support::classifierOf;
using support::informationOf;
using support::StoredClassifier;

TEST(ClassifierImplTest, MistakesOfCallersAreToldAndChangeNothing) {
    ClassifierImpl classifier(nullptr, 0.05);
    Classification classification;
    Keywords keywords(30, 0.0);
    EXPECT_THROW(classifier.classify("", classification), ClassifierException);
    EXPECT_THROW(classifier.classifyKeywords("a", keywords), ClassifierException);
    classifier.addClass("a");
    classifier.addClass("A");
    const struct {
        std::string reason;
        std::function<void()> call;
    } cases[] = {
        {"an empty name", [&] { classifier.addClass(""); }},
        {"already existing class with the name 'a'", [&] { classifier.addClass("a"); }},
        {"nonexisting class with the name 'x'", [&] { classifier.removeClass("x"); }},
        {"must at least have one character", [&] { classifier.train("", ""); }},
        {"must at least have one character", [&] { classifier.untrain("", ""); }},
        {"no failure", [&] { classifier.train("x", " . "); }},
        {"doesn't exist. Class name 'x'", [&] { classifier.train("x", "a"); }},
        {"doesn't exist. Class name 'x'", [&] { classifier.untrain("x", "a"); }},
    };
    for (const auto& row : cases) {
        EXPECT_THAT(support::failureOf<ClassifierException>(row.call), testing::HasSubstr(row.reason));
    }
    EXPECT_EQ(informationOf(classifier), "a 0/0, A 0/0");
}

TEST(ClassifierImplTest, CloneAndSwapKeepTwoClassifiersApart) {
    ClassifierImpl classifier(nullptr, 0.05);
    classifier.addClass("a");
    classifier.train("a", "Word word other");
    // word twice, other, "word wor" and "word oth"
    EXPECT_EQ(informationOf(classifier), "a 4/5");
    classifier.compact();
    const util::Bytes before = bytesOf(classifier);
    const std::unique_ptr<Classifier> copy = classifier.clone();
    copy->train("a", "one");
    copy->train("a", "word");  // whose record both share
    copy->addClass("b");
    EXPECT_EQ(informationOf(*copy), "a 5/7, b 0/0");
    EXPECT_EQ(bytesOf(classifier), before);

    const auto old = classifierOf(StoredClassifier{.extractorVersion = 3, .smoothing = 0.7}.bytes());
    old->swap(*copy);
    EXPECT_EQ(informationOf(*old), "a 5/7, b 0/0");
    copy->addClass("c");
    copy->train("c", "Word word");
    EXPECT_EQ(informationOf(*copy), "c 2/2") << "the extractor came along";
    const std::unique_ptr<Classifier> oldCopy = copy->clone();
    oldCopy->train("c", "WORD");
    EXPECT_EQ(informationOf(*oldCopy), "c 3/3") << "a copy has its original's extractor";
}

// What an answer rests on is kept from one to the next, but never beyond a change.
TEST(ClassifierImplTest, EveryChangeShowsInTheNextAnswer) {
    const StoredClassifier other{.classes = {{"a", 0, 9, 2}, {"b", 1, 7, 1}, {"z", 2, 1, 1}},
                                 .records = {{"x", 0, 2}, {"x", 1, 1}, {"hi", 1, 3}}};
    ClassifierImpl classifier(nullptr, 0.05);
    ClassifierImpl trained(nullptr, 0.05);
    trained.addClass("d");
    trained.addClass("e");
    trained.train("d", "x y z");
    const auto answerOf = [](const Classifier& asked) {
        Classification classification;
        asked.classify("x y hi", classification);
        std::map<std::string, double> answer;
        for (const auto& [name, probability] : classification.getProbabilities()) {
            answer[name] = probability;
        }
        return answer;
    };
    const std::pair<const char*, std::function<void()>> changes[] = {
        {"add", [&] { classifier.addClass("c"); }},
        {"train", [&] { classifier.train("c", "y y y y y y z"); }},
        {"untrain", [&] { classifier.untrain("c", "y y y z"); }},
        {"remove", [&] { classifier.removeClass("a"); }},
        {"load", [&] { classifier.setTrainingData(other.bytes()); }},
        {"swap", [&] { trained.swap(classifier); }},
    };
    classifier.setTrainingData(other.bytes());
    for (const auto& [name, change] : changes) {
        answerOf(classifier);
        change();
        classifier.compact();
        EXPECT_EQ(answerOf(classifier), answerOf(*classifierOf(bytesOf(classifier)))) << name;
    }
}

// A class may hold 4,294,967,295 occurrences, and so may a feature; stored totals are taken on trust and may
// be less or more.
TEST(ClassifierImplTest, TrainingPastTheGreatestCountChangesNothing) {
    const struct {
        std::uint32_t classCount, classUnique, recordCount;
        std::string text;
        std::string reason;
    } cases[] = {
        {4294967290, 1, 4294967290, "b b b b b", "no failure"},
        {4294967290, 1, 4294967290, "a c b b b b", "beyond a total count of 4294967295"},
        {1, 4294967293, 1, "a c", "no failure"},
        {1, 4294967293, 1, "a c d", "beyond a total count of 4294967295"},
        {1, 1, 4294967294, "a b c", "no failure"},
        {1, 1, 4294967294, "a b c b", "a feature into a class more than 4294967295 times"},
    };
    for (const auto& row : cases) {
        const auto classifier = classifierOf(StoredClassifier{
            .extractorVersion = 3,
            .classes = {{"j", 0, 3, 1}, {"k", 1, row.classCount, row.classUnique}},
            .records = {
                {"b", 0, 3},
                {"b", 1, row.recordCount}}}.bytes());
        const util::Bytes before = bytesOf(*classifier);
        EXPECT_THAT(support::failureOf<ClassifierException>([&] { classifier->train("k", row.text); }),
                    testing::HasSubstr(row.reason));
        classifier->compact();
        EXPECT_EQ(bytesOf(*classifier) != before, row.reason == "no failure") << row.text;
    }
    // Nor do totals go below zero.
    const auto classifier = classifierOf(StoredClassifier{
        .extractorVersion = 3, .classes = {{"a", 0, 1, 0}}, .records = {{"x", 0, 2}, {"y", 0, 2}}}
                                             .bytes());
    classifier->untrain("a", "x x y");
    EXPECT_EQ(informationOf(*classifier), "a 0/0");
}

TEST(ClassifierImplTest, ClassIndexesEndBeforeTheyWrap) {
    StoredClassifier stored;
    for (int i = 0; i < 65535; ++i) {
        stored.classes.push_back({std::to_string(i), static_cast<std::uint16_t>(i), 0, 0});
    }
    const auto classifier = classifierOf(stored.bytes());
    EXPECT_THROW(classifier->addClass("one more"), ClassifierException);
    EXPECT_EQ(bytesOf(*classifier), stored.bytes());
    classifier->removeClass("7");
    classifier->addClass("one more");
    EXPECT_EQ(classifier->getInformation().back().name, "one more");
}

}  // namespace halvern::classifier
