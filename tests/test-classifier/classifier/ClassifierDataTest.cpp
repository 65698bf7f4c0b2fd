#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <random>
#include <string>

#include "classifier/ClassifierException.h"
#include "support/Classifiers.h"
#include "support/FailingAllocation.h"
#include "support/Failure.h"
#include "support/Hex.h"
#include "support/OldClassifier.h"
#include "support/RecordingCallback.h"
#include "support/StoredClassifier.h"

namespace halvern::classifier {

namespace {

using support::bytesOf;
using support::classifierOf;
using support::StoredClassifier;

const std::string sound = "no failure";
const std::string cutOff =
    "The data that the Classifier is being set with seems to be corrupt. The database is corrupt, the size "
    "of "
    "a member exceeds the database size. Method ";

// Classes "a" and "b"; "a" holds "x" twice, "b" holds "x" once and "hi" three times.
StoredClassifier example() {
    return {.classes = {{"a", 0, 2, 1}, {"b", 1, 4, 2}}, .records = {{"x", 0, 2}, {"x", 1, 1}, {"hi", 1, 3}}};
}

std::string load(Classifier& classifier, const util::Bytes& data) {
    return support::failureOf<ClassifierException>([&] { classifier.setTrainingData(data); });
}

// Several classes and records in many lanes, with changes that wait for compaction.
std::unique_ptr<ClassifierImpl> trained() {
    auto classifier = std::make_unique<ClassifierImpl>(nullptr, 0.05);
    for (const char* name : {"first", "second", "third"}) {
        classifier->addClass(name);
        classifier->train(name, std::string("of all the words ") + name + " has its own, extraordinary ones");
    }
    classifier->compact();
    classifier->untrain("second", "of all the words");
    classifier->train("second", "all of them new");
    return classifier;
}

// Whatever was loaded, each operation must come back.
void use(Classifier& classifier) {
    Classification classification;
    Keywords keywords(30, 0.1);
    const std::string text = "x hi of all the words first has its own, extraordinary ones";
    for (auto classes = classifier.getInformation(); !classes.empty();
         classes = classifier.getInformation()) {
        classifier.classifyKeywords(text, keywords);
        for (const ClassInformation& entry : classes) {
            if (!entry.name.empty()) {
                classifier.untrain(entry.name, text);
                classifier.train(entry.name, text + text);
                classifier.untrain(entry.name, text + text + text);
                classifier.compact();
            }
        }
        classifier.classify(text, classification);
        classifier.removeClass(classes[classes.size() / 2].name);
        bytesOf(*classifier.clone());
    }
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
    EXPECT_EQ(support::toHex(bytes),
              "05 00 00 00 05 00 00 00 9a 99 99 99 99 99 a9 3f 02 00 "
              "01 00 00 00 61 00 00 02 00 00 00 01 00 00 00 "
              "01 00 00 00 62 01 00 04 00 00 00 02 00 00 00 "
              "00 00 00 00 "
              "02 00 00 00 78 00 00 02 00 00 00 78 01 00 01 00 00 00 "
              "01 00 00 00 68 69 01 00 03 00 00 00 " +
                  support::toHex(util::Bytes(29 * 4, 0)));
    EXPECT_EQ(bytes.capacity(), bytes.size()) << "a save needs one image of the classifier, not two";

    // Totals and names are taken as they stand.
    const StoredClassifier odd{.extractorVersion = 7,
                               .smoothing = 1.5,
                               .classes = {{"a", 0, 9, 0}, {"a", 1, 0, 8}, {"", 2, 0, 0}},
                               .records = {{"", 0, 1}, {std::string(31, 'x'), 2, 4294967295}}};
    EXPECT_EQ(bytesOf(*classifierOf(odd.bytes())->clone()), odd.bytes());
}

TEST(ClassifierDataTest, DamageIsToldAndLeavesNoClasses) {
    const std::string corrupt =
        "The data that the Classifier is being set with seems to be corrupt. The database is corrupt, ";
    const util::Bytes whole = example().bytes();
    const auto cut = [&whole](std::size_t size) { return util::Bytes(whole.begin(), whole.begin() + size); };
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
    const auto version = [](std::string number) {
        return "Trying to set the training data with a version that is not valid (" + number + "). Aborting.";
    };
    const struct {
        util::Bytes data;
        std::string message;
    } cases[] = {
        {{}, "Trying to load classifier with empty training data."},
        {cut(3), cutOff + "getNextPrimitive."},
        {with([](auto& s) { s.dataVersion = 2; }), version("2")},
        {with([](auto& s) { s.dataVersion = 6; }), version("6")},
        {overwritten(0, 4), version("4294967295")},
        {cut(15), cutOff + "getNextPrimitive."},
        {with([](auto& s) { s.extractorVersion = 2; }), "Unrecognized data version for feature extractor 2"},
        {with([](auto& s) { s.extractorVersion = 8; }), "Unrecognized data version for feature extractor 8"},
        {cut(22), cutOff + "getNextString."},
        {overwritten(18, 4), cutOff + "getNextString."},
        {cut(24), cutOff + "getNextPrimitive."},
        {cut(60), cutOff + "getNextCharStream."},
        {overwritten(whole.size() - 4, 4), cutOff + "getNextCharStream."},
        {with([](auto& s) { std::swap(s.records[0], s.records[1]); }),
         corrupt + "the records of a lane are not in order."},
        {with([](auto& s) { s.records[1] = s.records[0]; }),
         corrupt + "the records of a lane are not in order."},
        {with([](auto& s) { s.records[0].feature = "\xff"; }),
         corrupt + "the records of a lane are not in order."},
        {with([](auto& s) { s.records[2].classIndex = 2; }),
         corrupt + "a record is of a class that does not exist."},
        {with([](auto& s) { s.records[2].count = 0; }), corrupt + "a record has a count of 0."},
        {with([](auto& s) { s.classes[1].index = 0; }),
         corrupt + "the index of a class is not its place in the class table."},
    };
    for (const auto& row : cases) {
        const auto classifier = classifierOf(whole);
        EXPECT_EQ(load(*classifier, row.data), row.message);
        EXPECT_TRUE(classifier->getInformation().empty()) << row.message;
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
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            ClassifierImpl(nullptr, 0.05).setTrainingData(data);
        },
        testing::KilledBySignal(SIGABRT),
        "An assertion occurred in the Classifier API.\n"
        "This could be serious and you should contact the developer with this information.\n\n"
        "Expression: ClassifierImpl failure\n"
        "Description: There should exist no more training data at this point.\n"
        "File: classifier/ClassifierImpl\nLine: [0-9]+\n\n"
        "Please send this information to [^\n]+\n"
        "Thank you for helping us improve our software.\n");
}

TEST(ClassifierDataTest, DamagedBytesLoadOrAreRefusedAndNeverEndTheProcess) {
    support::RecordingCallbackFactory callbacks;
    const auto tryOut = [&callbacks](const util::Bytes& data) {
        ClassifierImpl classifier(&callbacks, 0.05);
        const std::string message = load(classifier, data);
        EXPECT_TRUE(message == sound || classifier.getInformation().empty());
        use(classifier);
        return message;
    };
    const auto manyLanes = trained();
    manyLanes->compact();
    const support::OldClassifier old{
        .classes = {{"a", {{}, {{"x", 4}}, {{"hi", 1}, {"oh", 2}}}}, {"b", {{}, {{"x", 1}, {"y", 0}}}}}};
    std::mt19937 random(3);
    for (const util::Bytes& whole : {example().bytes(), bytesOf(*manyLanes), old.bytes()}) {
        EXPECT_EQ(tryOut(whole), sound);
        for (std::size_t size = 4; size < whole.size(); ++size) {
            const std::string message = tryOut(util::Bytes(whole.begin(), whole.begin() + size));
            // The last class of old data may end behind its name.
            EXPECT_TRUE(message.find(cutOff) == 0 || whole == old.bytes()) << size << ": " << message;
        }
        for (int round = 0; round < 800; ++round) {
            util::Bytes data = whole;
            for (unsigned changes = 1 + random() % 3; changes > 0; --changes) {
                char& byte = data[random() % data.size()];
                byte = static_cast<char>(random() % 2 == 0 ? random() : byte ^ 1 << random() % 8);
            }
            tryOut(data);
        }
    }
}

// Every request for memory is denied once; the operation must then have done nothing, or all of it.
TEST(ClassifierDataTest, ExhaustedMemoryLeavesAClassifierAsItWas) {
    const util::Bytes empty = StoredClassifier{}.bytes();
    const util::Bytes other = example().bytes();
    const auto compacted = [](const Classifier& classifier) {
        const auto copy = classifier.clone();
        copy->compact();
        return bytesOf(*copy);
    };
    const auto base = trained();
    const auto taught = base->clone();
    const std::string text = "new words new words that second learns, some of them its own: extraordinary!";
    taught->train("second", text);
    const util::Bytes before = compacted(*base);
    Classification classification;
    const struct {
        const char* name;
        std::function<void(Classifier&)> call;
        util::Bytes ifFailed, ifDone;
    } cases[] = {
        {"train", [&](Classifier& c) { c.train("second", text); }, before, compacted(*taught)},
        {"compact", [](Classifier& c) { c.compact(); }, before, before},
        {"clone", [](Classifier& c) { c.clone(); }, before, before},
        {"load", [&](Classifier& c) { c.setTrainingData(other); }, empty, other},
    };
    for (const auto& row : cases) {
        bool failed = true;
        int requests = 0;
        for (; failed; ++requests) {
            const auto classifier = base->clone();
            failed = false;
            try {
                const support::FailingAllocation failing(requests);
                row.call(*classifier);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            ASSERT_EQ(compacted(*classifier), failed ? row.ifFailed : row.ifDone) << row.name << requests;
        }
        EXPECT_GT(requests, 2) << row.name;
    }
}

}  // namespace halvern::classifier
