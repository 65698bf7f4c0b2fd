#include "files/Inspection.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "files/ClassifierFile.h"
#include "support/Classifiers.h"
#include "support/OldClassifier.h"
#include "support/StoredClassifier.h"

namespace halvern::morvane::client::files {
namespace {

// Classes "a" and "b"; lane 0 begins at byte 48, the records of lane 1 at 63, those of lane 2 at 81.
support::StoredClassifier example() {
    return {.classes = {{"a", 0, 3, 2}, {"b", 1, 4, 2}},
            .records = {{"", 0, 1}, {"x", 0, 2}, {"x", 1, 1}, {"hi", 1, 3}}};
}

std::string complaintsOf(const util::Bytes& data) {
    std::string text;
    const Inspection inspection = inspect(data, 10);
    for (const Complaint& each : inspection.complaints.kept()) {
        text += std::to_string(each.offset) + ", " + each.place + ": " + each.problem + "\n";
    }
    return text;
}

TEST(InspectionTest, SaysWhereAndHowAGuaranteeIsBroken) {
    struct Case {
        std::function<void(support::StoredClassifier&)> damage;
        std::string complaint;
    };
    const auto infinity = std::numeric_limits<double>::infinity();
    const Case cases[] = {
        {[](auto&) {}, ""},
        {[](auto& c) { c.dataVersion = 6; },
         "0, header: the data version is 6, and only 3, 4 and 5 are known; this may be no classifier\n"},
        {[](auto& c) { c.extractorVersion = 8; },
         "4, header: the extractor version is 8, and there are only 3 to 7\n"},
        {[](auto& c) { c.smoothing = 0; },
         "8, header: the smoothing constant is 0.000000, which is no number above 0; probabilities can't be "
         "worked out with it\n"},
        {[=](auto& c) { c.smoothing = infinity; },
         "8, header: the smoothing constant is inf, which is no number above 0; probabilities can't be "
         "worked "
         "out with it\n"},
        {[](auto& c) { c.classes[1].name = "a"; }, "33, class row 1: the name \"a\" stands twice\n"},
        {[](auto& c) { c.classes[1].name = ""; }, "33, class row 1: the name is empty\n"},
        {[](auto& c) { c.classes[1].index = 2; },
         "38, class row 1: the index is 2, and should be the row's place\n"},
        {[](auto& c) { c.classes[1].count = 5; },
         "40, class row 1 (\"b\"): the total is 5, and the counts of its records sum up to 4\n"},
        {[](auto& c) { c.classes[0].unique = 1; },
         "29, class row 0 (\"a\"): the number of distinct features is 1, and it has 2 records\n"},
        {[](auto& c) { std::swap(c.records[1], c.records[2]); },
         "70, lane 1, record 1 (\"x\", class 0): it should stand before record 0 (\"x\", class 1)\n"},
        {[](auto& c) { c.records[1].feature = "\xff"; },
         "70, lane 1, record 1 (\"x\", class 1): it should stand before record 0 (\"\\xff\", class 0)\n"},
        {[](auto& c) {
             c.records[2].classIndex = 0;
             c.classes = {{"a", 0, 4, 3}, {"b", 1, 3, 1}};
         },
         "70, lane 1, record 1 (\"x\", class 0): the same pair stands in the record before\n"},
        {[](auto& c) {
             c.records[3] = {"hi", 2, 3};
             c.classes[1] = {"b", 1, 1, 1};
         },
         "83, lane 2, record 0 (\"hi\", class 2): there is no such class; the classifier has 2\n"},
        {[](auto& c) {
             c.records[3].count = 0;
             c.classes[1].count = 1;
         },
         "85, lane 2, record 0 (\"hi\", class 1): the count is 0\n"},
    };
    for (const Case& each : cases) {
        support::StoredClassifier stored = example();
        each.damage(stored);
        EXPECT_EQ(complaintsOf(stored.bytes()), each.complaint);
    }
    util::Bytes bytes = example().bytes();
    bytes[52] = 1;
    EXPECT_EQ(complaintsOf(bytes),
              "52, lane 0, record 0 (\"\", class 0): the filler byte isn't 0, so equal classifiers differ in "
              "bytes\n");
    bytes = example().bytes();
    bytes.push_back(0);
    EXPECT_EQ(complaintsOf(bytes), std::to_string(bytes.size() - 1) +
                                       ", behind lane 31: 1 bytes too many; the data should end here\n");
    bytes = example().bytes();
    bytes[62] = '\x7f';
    EXPECT_EQ(complaintsOf(bytes), "59, lane 1: there should be 2130706434 records of 7 bytes, and only " +
                                       std::to_string(bytes.size() - 63) + " bytes are left\n");
    EXPECT_EQ(complaintsOf({}), "0, file: it is empty\n");
}

// What the inspection takes for sound must load and come back byte for byte, and what the server refuses must
// not pass; whatever happened to the bytes.
TEST(InspectionTest, AgreesWithTheEngineOnDamagedBytes) {
    const util::Bytes sound = example().bytes();
    const auto agree = [](const util::Bytes& bytes) {
        const Inspection inspection = inspect(bytes, 1);
        return !inspection.isSound() ||
               (refusalOfServer(bytes).empty() &&
                (inspection.dataVersion != 5 || support::bytesOf(*support::classifierOf(bytes)) == bytes));
    };
    for (std::size_t at = 0; at < sound.size(); ++at) {
        EXPECT_FALSE(
            inspect(util::Bytes(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(at)), 1).isSound())
            << "cut at " << at;
        for (int bit = 0; bit < 8; ++bit) {
            util::Bytes bytes = sound;
            bytes[at] = static_cast<char>(bytes[at] ^ 1 << bit);
            EXPECT_TRUE(agree(bytes)) << "byte " << at << ", bit " << bit;
        }
    }
}

TEST(InspectionTest, KnowsTheOldVersions) {
    using Chunks = support::OldClassifier::Chunks;
    const Chunks none;
    struct Case {
        std::vector<support::OldClassifier::Class> classes;
        std::string complaint;
        bool serverRefuses;
    };
    std::vector<Chunks> tooLong(33, none);
    tooLong[32] = {{std::string(32, 't'), 1}};
    const Case cases[] = {
        {{{"a", {none, {{"x", 2}, {"y", 0}}}}, {"b", {}}}, "", false},
        {{{"", {none}}}, "8, class block 0: the name is empty\n", true},
        {{{"a", {none}}, {"a", {none}}}, "21, class block 1: the name \"a\" stands twice\n", true},
        {{{"a", {none, {{"y", 2}, {"x", 1}}}}},
         "30, class block 0 (\"a\"), lane 1, chunk 1 (\"x\"): it should stand before the chunk before it\n",
         false},
        {{{"a", {none, {{"x", 2}, {"x", 1}}}}},
         "30, class block 0 (\"a\"), lane 1, chunk 1 (\"x\"): the same token stands in the chunk before\n",
         false},
        {{{"a", {none, {{"xy", 2}}}}},
         "21, class block 0 (\"a\"), lane 1: its 6 bytes are no multiple of a chunk's 5\n",
         true},
        {{{"a", {none, {{"x", UINT32_MAX}, {"y", 1}}}}},
         "8, class block 0 (\"a\"): its counts sum up to 4294967296, which is beyond 32 bits\n",
         true},
        {{{"a", tooLong}},
         "149, class block 0 (\"a\"), lane 32, chunk 0 (\"" + std::string(32, 't') +
             "\"): the token is too long to be stored\n",
         true},
    };
    for (const std::uint32_t version : {3, 4}) {
        for (const Case& each : cases) {
            const util::Bytes bytes = support::OldClassifier{version, each.classes}.bytes();
            EXPECT_EQ(complaintsOf(bytes), each.complaint);
            EXPECT_EQ(!refusalOfServer(bytes).empty(), each.serverRefuses) << each.complaint;
            EXPECT_EQ(inspect(bytes, 1).dataVersion, version);
            EXPECT_EQ(inspect(bytes, 1).notes.size(), 1);
        }
    }
    const util::Bytes whole = support::OldClassifier{3, cases[0].classes}.bytes();
    // Behind the name of the last class the data may end, so only that cut and the whole are sound.
    for (std::size_t size = 4; size < whole.size(); ++size) {
        const util::Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(inspect(cut, 1).isSound(), refusalOfServer(cut).empty()) << size;
    }
}

TEST(InspectionTest, CountsWhatItDoesNotKeep) {
    support::StoredClassifier stored{.classes = {{"a", 0, 0, 300}}};
    for (char c = 0; c < 100; ++c) {
        stored.records.push_back({std::string(3, c), 0, 0});
    }
    const Inspection inspection = inspect(stored.bytes(), 7);
    EXPECT_EQ(inspection.complaints.kept().size(), 7);
    EXPECT_EQ(inspection.complaints.count(), 101);
}

}  // namespace
}  // namespace halvern::morvane::client::files
