#include "classifier/ClassifierImpl.h"

#include <gtest/gtest.h>

#include <functional>
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

TEST(ClassifierImplTest, MistakesOfCallersAreTold) {
    ClassifierImpl classifier(nullptr, 0.05);
    Classification classification;
    Keywords keywords(30, 0.0);
    const std::string noClasses = "Trying to classify a text before any classes have been added!";
    const auto failure = [](const auto& call) { return support::failureOf<ClassifierException>(call); };
    EXPECT_EQ(failure([&] { classifier.classify("", classification); }), noClasses);
    EXPECT_EQ(failure([&] { classifier.classifyKeywords("a", keywords); }), noClasses);
    EXPECT_EQ(classification.getTextCoverage(), -1.0);

    classifier.addClass("a");
    classifier.addClass("A");
    const struct {
        std::string message;
        std::function<void()> call;
    } cases[] = {
        {"Trying to add a class with an empty name.", [&] { classifier.addClass(""); }},
        {"Trying to add an already existing class with the name 'a'. Use classExists to find out if a class "
         "already is added.",
         [&] { classifier.addClass("a"); }},
        {"Trying to remove a nonexisting class with the name 'x'.", [&] { classifier.removeClass("x"); }},
        {"When training the classifier the class name must at least have one character.",
         [&] { classifier.train("", ""); }},
        {"When untraining the classifier the class name must at least have one character.",
         [&] { classifier.untrain("", ""); }},
        {"no failure", [&] { classifier.train("x", " . "); }},
        {"no failure", [&] { classifier.untrain("x", ""); }},
        {"Trying to train on a class that doesn't exist. Class name 'x'.",
         [&] { classifier.train("x", "a"); }},
        {"Trying to untrain on a class that doesn't exist. Class name 'x'.",
         [&] { classifier.untrain("x", "a"); }},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(failure(row.call), row.message);
    }
    EXPECT_EQ(informationOf(classifier), "a 0/0, A 0/0");
}

TEST(ClassifierImplTest, CloneAndSwapKeepTwoClassifiersApart) {
    ClassifierImpl classifier(nullptr, 0.05);
    classifier.addClass("a");
    classifier.train("a", "Word word other");
    // word twice, other, "word wor" and "word oth"
    EXPECT_EQ(informationOf(classifier), "a 4/5");
    const std::unique_ptr<Classifier> copy = classifier.clone();
    copy->train("a", "one");
    copy->addClass("b");
    EXPECT_EQ(informationOf(*copy), "a 5/6, b 0/0");
    EXPECT_EQ(informationOf(classifier), "a 4/5");

    const auto old = classifierOf(StoredClassifier{.extractorVersion = 3, .smoothing = 0.7}.bytes());
    copy->compact();
    const util::Bytes oldBytes = bytesOf(*old);
    const util::Bytes copyBytes = bytesOf(*copy);
    old->swap(*copy);
    EXPECT_EQ(bytesOf(*old), copyBytes);
    EXPECT_EQ(bytesOf(*copy), oldBytes);
    copy->addClass("c");
    copy->train("c", "Word word");
    EXPECT_EQ(informationOf(*copy), "c 2/2") << "the extractor came along";
    const std::unique_ptr<Classifier> oldCopy = copy->clone();
    oldCopy->train("c", "WORD");
    EXPECT_EQ(informationOf(*oldCopy), "c 3/3") << "a copy has its original's extractor";
}

// A class may hold 4,294,967,295 occurrences, and so may a feature; stored totals are taken on trust and may
// be less or more.
TEST(ClassifierImplTest, TrainingPastTheGreatestCountChangesNothing) {
    const std::string tooMuchForClass =
        "Trying to train the class 'k' beyond a total count of 4294967295, the largest that a class can "
        "hold. "
        "Untrain texts or add another class.";
    const std::string tooMuchForFeature =
        "Trying to train a feature into a class more than 4294967295 times. This is the largest count of a "
        "feature.";
    const struct {
        std::uint32_t classCount, classUnique, recordCount;
        std::string text;
        std::string message;
    } cases[] = {
        {4294967290, 1, 4294967290, "b b b b b", "no failure"},
        {4294967290, 1, 4294967290, "a c b b b b", tooMuchForClass},
        {1, 4294967293, 1, "a c", "no failure"},
        {1, 4294967293, 1, "a c d", tooMuchForClass},
        {1, 1, 4294967294, "a b c", "no failure"},
        {1, 1, 4294967294, "a b c b", tooMuchForFeature},
    };
    for (const auto& row : cases) {
        const auto classifier = classifierOf(StoredClassifier{
            .extractorVersion = 3,
            .classes = {{"j", 0, 3, 1}, {"k", 1, row.classCount, row.classUnique}},
            .records = {
                {"b", 0, 3},
                {"b", 1, row.recordCount}}}.bytes());
        const util::Bytes before = bytesOf(*classifier);
        EXPECT_EQ(support::failureOf<ClassifierException>([&] { classifier->train("k", row.text); }),
                  row.message);
        classifier->compact();
        EXPECT_EQ(bytesOf(*classifier) != before, row.message == "no failure") << row.text;
    }
}

TEST(ClassifierImplTest, StoredTotalsAreTrustedButNeverGoBelowZero) {
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
    EXPECT_EQ(
        support::failureOf<ClassifierException>([&] { classifier->addClass("one more"); }),
        "Trying to add the class 'one more' to a classifier that has 65535 classes, the most that it can "
        "hold. Remove a class first.");
    EXPECT_EQ(bytesOf(*classifier), stored.bytes());
    classifier->removeClass("7");
    classifier->addClass("one more");
    EXPECT_EQ(classifier->getInformation().back().name, "one more");
}

}  // namespace halvern::classifier
