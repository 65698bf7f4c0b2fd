#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "classifier/ClassifierException.h"
#include "support/Classifiers.h"
#include "support/Failure.h"
#include "support/RecordingCallback.h"
#include "support/StoredClassifier.h"

namespace halvern::classifier {

namespace {

using support::bytesOf;
using support::classifierOf;
using support::StoredClassifier;

const std::string sound = "no failure";

// Classes "a" and "b"; "a" holds "x" twice, "b" holds "x" once and "hi" three times.
StoredClassifier example() {
    return {.classes = {{"a", 0, 2, 1}, {"b", 1, 4, 2}}, .records = {{"x", 0, 2}, {"x", 1, 1}, {"hi", 1, 3}}};
}

std::string load(Classifier& classifier, const util::Bytes& data) {
    return support::failureOf<ClassifierException>([&] { classifier.setTrainingData(data); });
}

}  // namespace

TEST(ClassifierDataTest, BytesAreTheFormatAndComeBack) {
    EXPECT_EQ(bytesOf(ClassifierImpl(nullptr, 0.05)), StoredClassifier{}.bytes());

    ClassifierImpl classifier(nullptr, 0.05);
    classifier.addClass("a");
    classifier.addClass("b");
    for (const auto& [name, text] :
         {std::pair("b", "hi"), {"a", "X.x"}, {"b", "x"}, {"b", "HI"}, {"b", "hi"}}) {
        classifier.train(name, text);
    }
    classifier.untrain("b", "hi");
    classifier.train("b", "hi");
    classifier.compact();
    const util::Bytes bytes = bytesOf(classifier);
    using namespace std::string_literals;
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()),
              "\5\0\0\0\5\0\0\0\x9a\x99\x99\x99\x99\x99\xa9?\2\0"s
              "\1\0\0\0a\0\0\2\0\0\0\1\0\0\0"
              "\1\0\0\0b\1\0\4\0\0\0\2\0\0\0"
              "\0\0\0\0"
              "\2\0\0\0x\0\0\2\0\0\0x\1\0\1\0\0\0"
              "\1\0\0\0hi\1\0\3\0\0\0" +
                  std::string(29 * 4, '\0'));
    EXPECT_EQ(bytes.capacity(), bytes.size()) << "a save needs one image of the classifier, not two";

    // Totals and names are taken as they stand.
    const StoredClassifier odd{.extractorVersion = 7,
                               .smoothing = 1.5,
                               .classes = {{"a", 0, 9, 0}, {"a", 1, 0, 8}, {"", 2, 0, 0}},
                               .records = {{"", 0, 1}, {std::string(31, 'x'), 2, 4294967295}}};
    EXPECT_EQ(bytesOf(*classifierOf(odd.bytes())->clone()), odd.bytes());
}

TEST(ClassifierDataTest, DamageIsToldAndLeavesNoClasses) {
    const util::Bytes whole = example().bytes();
    const auto overwritten = [&whole](std::size_t place, std::size_t count) {
        util::Bytes data = whole;
        std::fill_n(data.begin() + place, count, '\xFF');
        return data;
    };
    const auto with = [](void (*change)(StoredClassifier&)) {
        StoredClassifier stored = example();
        change(stored);
        return stored.bytes();
    };
    const struct {
        util::Bytes data;
        std::string reason;
    } cases[] = {
        {{}, "empty training data"},
        {util::Bytes(3), "getNextPrimitive"},
        {with([](auto& s) { s.dataVersion = 2; }), "a version that is not valid (2)"},
        {with([](auto& s) { s.dataVersion = 6; }), "a version that is not valid (6)"},
        {with([](auto& s) { s.extractorVersion = 2; }), "for feature extractor 2"},
        {with([](auto& s) { s.extractorVersion = 8; }), "for feature extractor 8"},
        {overwritten(18, 4), "getNextString"},
        {overwritten(whole.size() - 4, 4), "getNextCharStream"},
        {with([](auto& s) { std::swap(s.records[0], s.records[1]); }), "records of a lane are not in order"},
        {with([](auto& s) { s.records[1] = s.records[0]; }), "records of a lane are not in order"},
        {with([](auto& s) { s.records[0].feature = "\xff"; }), "records of a lane are not in order"},
        {with([](auto& s) { s.records[2].classIndex = 2; }), "a record is of a class that does not exist"},
        {with([](auto& s) { s.records[2].count = 0; }), "a record has a count of 0"},
        {with([](auto& s) { s.classes[1].index = 0; }), "index of a class is not its place"},
    };
    for (const auto& row : cases) {
        const auto classifier = classifierOf(whole);
        EXPECT_THAT(load(*classifier, row.data), testing::HasSubstr(row.reason));
        EXPECT_TRUE(classifier->getInformation().empty()) << row.reason;
        // What is left can still be used, and be loaded anew.
        classifier->clone()->addClass("c");
        EXPECT_EQ(load(*classifier, whole), sound);
    }
}

TEST(ClassifierDataTest, BytesBehindTheLastLaneAreReportedAndIgnored) {
    support::RecordingCallbackFactory callbacks;
    util::Bytes data = example().bytes();
    data.push_back('\0');
    EXPECT_EQ(bytesOf(*classifierOf(data, &callbacks)), example().bytes());
    EXPECT_EQ(
        callbacks.reports,
        std::vector<std::string>{"ClassifierImpl failure|There should exist no more training data at this "
                                 "point.|classifier/ClassifierImpl"});

    // Without a callback of one's own the report is the end of the process.
    EXPECT_EXIT(ClassifierImpl(nullptr, 0.05).setTrainingData(data), testing::KilledBySignal(SIGABRT), "");
}

}  // namespace halvern::classifier
