#include <gtest/gtest.h>

#include <new>
#include <random>
#include <string>

#include "classifier/ClassifierException.h"
#include "classifier/ClassifierImpl.h"
#include "support/FailedCheck.h"
#include "support/FailingAllocation.h"
#include "support/RecordingCallback.h"
#include "support/StoredClassifier.h"

namespace halvern::classifier {

namespace {

using support::StoredClassifier;

// Classes "a" and "b"; "a" holds "x" twice, "b" holds "x" once and "hi" three times.
const StoredClassifier example{.classes = {{"a", 0, 2, 1}, {"b", 1, 4, 2}},
                               .records = {{"x", 0, 2}, {"x", 1, 1}, {"hi", 1, 3}}};

std::string messageOf(ClassifierImpl& classifier, const util::Bytes& data) {
    try {
        classifier.setTrainingData(data);
    } catch (const ClassifierException& exception) {
        return exception.what();
    }
    return "";
}

util::Bytes bytesOf(const Classifier& classifier) {
    util::Bytes bytes;
    classifier.getTrainingData(bytes);
    return bytes;
}

util::Bytes cut(util::Bytes bytes, std::size_t size) {
    bytes.resize(size);
    return bytes;
}

StoredClassifier with(void (*change)(StoredClassifier&)) {
    StoredClassifier stored = example;
    change(stored);
    return stored;
}

// Several classes and records in many lanes, some of them uncompacted when compacted is false.
std::unique_ptr<ClassifierImpl> trained(bool compacted) {
    auto classifier = std::make_unique<ClassifierImpl>(nullptr, 0.05);
    for (const char* name : {"first", "second", "third"}) {
        classifier->addClass(name);
        classifier->train(name, std::string("of all the words ") + name + " has its own, extraordinary ones");
    }
    classifier->compact();
    if (!compacted) {
        classifier->untrain("second", "of all the words");
        classifier->train("second", "all of them new");
    }
    return classifier;
}

// Whatever was loaded, each operation must come back.
void use(Classifier& classifier) {
    Classification classification;
    Keywords keywords(30, 0.1);
    const std::string text = "x hi of all the words first has its own, extraordinary ones";
    while (true) {
        const auto information = classifier.getInformation();
        if (information.empty()) {
            return;
        }
        classifier.classify(text, classification);
        classifier.classifyKeywords(text, keywords);
        for (const ClassInformation& entry : information) {
            if (!entry.name.empty()) {
                classifier.untrain(entry.name, text);
                classifier.train(entry.name, text + text);
                classifier.untrain(entry.name, text + text + text);
                classifier.compact();
            }
        }
        classifier.classify(text, classification);
        classifier.removeClass(information[information.size() / 2].name);
        bytesOf(*classifier.clone());
    }
}

}  // namespace

TEST(ClassifierDataTest, BytesAreTheFormatAndComeBack) {
    ClassifierImpl empty(nullptr, 0.05);
    EXPECT_EQ(bytesOf(empty), StoredClassifier{}.bytes());
    EXPECT_EQ(bytesOf(empty).size(), 146u);

    ClassifierImpl classifier(nullptr, 0.05);
    classifier.addClass("a");
    classifier.addClass("b");
    classifier.train("b", "hi hi hi");
    classifier.train("a", "X.x");
    classifier.train("b", "x");
    classifier.untrain("b", "hi hi");
    classifier.train("b", "hi.HI");
    classifier.compact();
    const util::Bytes pairs = bytesOf(classifier);
    // "hi hi" is a pair of 5 bytes: once from training thrice less once, and once more.
    StoredClassifier expected = example;
    expected.classes[1] = {"b", 1, 6, 3};
    expected.records.push_back({"hi hi", 1, 2});
    EXPECT_EQ(pairs, expected.bytes());
    EXPECT_EQ(pairs.capacity(), pairs.size()) << "a save needs one image of the classifier, not two";

    const util::Bytes stored = example.bytes();
    ASSERT_EQ(stored.size(), 198u);
    EXPECT_EQ(messageOf(classifier, stored), "");
    EXPECT_EQ(bytesOf(classifier), stored);
    const util::Bytes version3 = with([](auto& s) {
                                     s.extractorVersion = 3;
                                     s.smoothing = 1.5;
                                 }).bytes();
    EXPECT_EQ(messageOf(classifier, version3), "");
    EXPECT_EQ(bytesOf(*classifier.clone()), version3);
}

TEST(ClassifierDataTest, DamageIsToldAndLeavesNoClasses) {
    const std::string corrupt = "The data that the Classifier is being set with seems to be corrupt. ";
    const std::string tooLong = corrupt +
                                "The database is corrupt, the size of a member exceeds the database size. "
                                "Method ";
    const util::Bytes sound = example.bytes();
    util::Bytes hugeLane = sound;
    hugeLane.resize(sound.size() - 4);
    hugeLane.insert(hugeLane.end(), 4, '\xFF');
    util::Bytes negativeName = sound;
    std::fill_n(negativeName.begin() + 18, 4, '\xFF');
    const auto version = [](std::uint32_t number) {
        StoredClassifier stored = example;
        stored.dataVersion = number;
        return stored.bytes();
    };
    const struct {
        util::Bytes data;
        std::string message;
    } cases[] = {
        {{}, "Trying to load classifier with empty training data."},
        {cut(sound, 3), tooLong + "getNextPrimitive."},
        {version(6), "Trying to set the training data with a version that is not valid (6). Aborting."},
        {version(4294967295),
         "Trying to set the training data with a version that is not valid (4294967295). Aborting."},
        {cut(version(6), 4),
         "Trying to set the training data with a version that is not valid (6). Aborting."},
        {cut(sound, 7), tooLong + "getNextPrimitive."},
        {cut(sound, 15), tooLong + "getNextPrimitive."},
        {with([](auto& s) { s.extractorVersion = 8; }).bytes(),
         "Unrecognized data version for feature extractor 8"},
        {cut(sound, 19), tooLong + "getNextPrimitive."},
        {cut(sound, 22), tooLong + "getNextString."},
        {negativeName, tooLong + "getNextString."},
        {cut(sound, 30), tooLong + "getNextPrimitive."},
        {cut(sound, 49), tooLong + "getNextPrimitive."},
        {cut(sound, 60), tooLong + "getNextCharStream."},
        {hugeLane, tooLong + "getNextCharStream."},
        {with([](auto& s) { std::swap(s.records[0], s.records[1]); }).bytes(),
         corrupt + "The database is corrupt, the records of a lane are not in order."},
        {with([](auto& s) { s.records[1] = s.records[0]; }).bytes(),
         corrupt + "The database is corrupt, the records of a lane are not in order."},
        {with([](auto& s) { s.records[2].classIndex = 2; }).bytes(),
         corrupt + "The database is corrupt, a record is of a class that does not exist."},
        {with([](auto& s) { s.records[2].count = 0; }).bytes(),
         corrupt + "The database is corrupt, a record has a count of 0."},
        {with([](auto& s) { s.classes[1].index = 0; }).bytes(),
         corrupt + "The database is corrupt, the index of a class is not its place in the class table."},
    };
    for (const auto& row : cases) {
        ClassifierImpl classifier(nullptr, 0.05);
        classifier.setTrainingData(sound);
        EXPECT_EQ(messageOf(classifier, row.data), row.message);
        EXPECT_TRUE(classifier.getInformation().empty()) << row.message;
        // What is left can still be used, and be loaded anew.
        classifier.clone()->addClass("c");
        EXPECT_EQ(messageOf(classifier, sound), "");
    }
}

TEST(ClassifierDataTest, BytesBehindTheLastLaneAreReportedAndIgnored) {
    support::RecordingCallbackFactory callbacks;
    ClassifierImpl classifier(&callbacks, 0.05);
    util::Bytes data = example.bytes();
    EXPECT_EQ(messageOf(classifier, data), "");
    EXPECT_TRUE(callbacks.reports.empty());
    data.push_back('\0');
    EXPECT_EQ(messageOf(classifier, data), "");
    EXPECT_EQ(
        callbacks.reports,
        std::vector<std::string>{"ClassifierImpl failure|There should exist no more training data at this "
                                 "point.|classifier/ClassifierImpl"});
    EXPECT_EQ(classifier.getInformation().size(), 2u);

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
        const bool loaded = messageOf(classifier, data).empty();
        EXPECT_EQ(loaded || classifier.getInformation().empty(), true);
        use(classifier);
        return loaded;
    };
    for (const util::Bytes& sound : {example.bytes(), bytesOf(*trained(true))}) {
        EXPECT_TRUE(tryOut(sound));
        for (std::size_t size = 0; size < sound.size(); ++size) {
            EXPECT_FALSE(tryOut(cut(sound, size))) << "cut at " << size;
        }
        for (std::size_t place = 0; place < sound.size(); ++place) {
            for (const int change : {0x01, 0x80, 0xFF, 0x20}) {
                util::Bytes data = sound;
                data[place] = static_cast<char>(data[place] ^ change);
                tryOut(data);
            }
        }
        std::mt19937 random(3);
        for (int round = 0; round < 500; ++round) {
            util::Bytes data = sound;
            for (unsigned changes = random() % 6; changes > 0; --changes) {
                data[random() % data.size()] = static_cast<char>(random());
            }
            tryOut(data);
        }
    }
}

TEST(ClassifierMemoryTest, TrainingIsAllOrNothing) {
    for (const bool compacted : {true, false}) {
        const std::unique_ptr<ClassifierImpl> base = trained(compacted);
        const std::string text = "of all the new words that second learns, some are its own: extraordinary!";
        const std::unique_ptr<Classifier> untouched = base->clone();
        untouched->compact();
        const util::Bytes before = bytesOf(*untouched);
        bool failed = true;
        int k = 0;
        for (; failed; ++k) {
            const std::unique_ptr<Classifier> classifier = base->clone();
            failed = false;
            try {
                const support::FailingAllocation failing(k);
                classifier->train("second", text);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            classifier->compact();
            ASSERT_EQ(bytesOf(*classifier) == before, failed) << "request " << k;
        }
        EXPECT_GT(k, 10);
    }
}

TEST(ClassifierMemoryTest, OtherOperationsSurviveAShortageWhole) {
    const std::unique_ptr<ClassifierImpl> base = trained(false);
    const std::unique_ptr<Classifier> finished = base->clone();
    finished->compact();
    const util::Bytes after = bytesOf(*finished);
    const util::Bytes other = example.bytes();
    enum Operation { COMPACT, LOAD, CLONE, CLASSIFY, ALL };
    for (int operation = COMPACT; operation < ALL; ++operation) {
        bool failed = true;
        int k = 0;
        for (; failed; ++k) {
            const std::unique_ptr<Classifier> classifier =
                operation == COMPACT ? base->clone() : finished->clone();
            Classification classification;
            failed = false;
            try {
                const support::FailingAllocation failing(k);
                switch (operation) {
                    case COMPACT:
                        classifier->compact();
                        break;
                    case LOAD:
                        classifier->setTrainingData(other);
                        break;
                    case CLONE:
                        classifier->clone();
                        break;
                    default:
                        classifier->classify("all of them new", classification);
                        break;
                }
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            if (operation == LOAD) {
                ASSERT_EQ(classifier->getInformation().size(), failed ? 0u : 2u) << "request " << k;
            } else {
                classifier->compact();
                ASSERT_EQ(bytesOf(*classifier), after) << "operation " << operation << ", request " << k;
            }
        }
        EXPECT_GT(k, 2) << "operation " << operation;
    }
}

}  // namespace halvern::classifier
