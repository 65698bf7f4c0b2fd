#include "files/Inspection.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

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

// The one thing that is wrong with the data begins so; empty: nothing is.
void expectComplaint(const util::Bytes& data, const std::string& beginning) {
    const Inspection inspection = inspect(data, 10);
    std::string said;
    for (const Complaint& each : inspection.complaints.kept()) {
        said += std::to_string(each.offset) + ", " + each.place + ": " + each.problem + "\n";
    }
    EXPECT_EQ(said.substr(0, beginning.size()), beginning);
    EXPECT_EQ(inspection.complaints.count(), beginning.empty() ? 0 : 1) << said;
}

TEST(InspectionTest, SaysWhereAndHowAGuaranteeIsBroken) {
    const std::pair<std::function<void(support::StoredClassifier&)>, const char*> cases[] = {
        {[](auto& c) { c.dataVersion = 6; }, "0, header: the data version is 6"},
        {[](auto& c) { c.extractorVersion = 8; }, "4, header: the extractor version is 8"},
        {[](auto& c) { c.smoothing = HUGE_VAL; }, "8, header: the smoothing constant is inf"},
        {[](auto& c) { c.classes[1].name = "a"; }, "33, class row 1: the name \"a\" stands twice"},
        {[](auto& c) { c.classes[1].name = ""; }, "33, class row 1: the name is empty"},
        {[](auto& c) { c.classes[1].index = 2; }, "38, class row 1: the index is 2"},
        {[](auto& c) { c.classes[1].count = 5; }, "40, class row 1 (\"b\"): the total is 5"},
        {[](auto& c) { c.classes[0].unique = 1; }, "29, class row 0 (\"a\"): the number of distinct"},
        {[](auto& c) { std::swap(c.records[1], c.records[2]); },
         "70, lane 1, record 1 (\"x\", class 0): it should stand before record 0 (\"x\", class 1)"},
        {[](auto& c) { c.records[1].feature = "\xff"; },
         "70, lane 1, record 1 (\"x\", class 1): it should stand before record 0 (\"\\xff\", class 0)"},
        {[](auto& c) {
             c.records[2].classIndex = 0;
             c.classes = {{"a", 0, 4, 3}, {"b", 1, 3, 1}};
         },
         "70, lane 1, record 1 (\"x\", class 0): the same pair stands in the record before"},
        {[](auto& c) {
             c.records[3] = {"hi", 2, 3};
             c.classes[1] = {"b", 1, 1, 1};
         },
         "83, lane 2, record 0 (\"hi\", class 2): there is no such class"},
        {[](auto& c) {
             c.records[3].count = 0;
             c.classes[1].count = 1;
         },
         "85, lane 2, record 0 (\"hi\", class 1): the count is 0"},
    };
    for (const auto& [damage, complaint] : cases) {
        support::StoredClassifier stored = example();
        damage(stored);
        expectComplaint(stored.bytes(), complaint);
    }
    util::Bytes bytes = example().bytes();
    bytes[52] = 1;
    expectComplaint(bytes, "52, lane 0, record 0 (\"\", class 0): the filler byte isn't 0");
    expectComplaint({}, "0, file: it is empty");
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
        util::Bytes cut = sound;
        cut.resize(at);
        EXPECT_FALSE(inspect(cut, 1).isSound()) << "cut at " << at;
        for (int bit = 0; bit < 8; ++bit) {
            util::Bytes bytes = sound;
            bytes[at] = static_cast<char>(bytes[at] ^ 1 << bit);
            EXPECT_TRUE(agree(bytes)) << "byte " << at << ", bit " << bit;
        }
    }
    util::Bytes longer = sound;
    longer.push_back(0);
    EXPECT_FALSE(inspect(longer, 1).isSound());
}

TEST(InspectionTest, KnowsTheOldVersions) {
    using Chunks = support::OldClassifier::Chunks;
    const Chunks none;
    std::vector<Chunks> tooLong(33, none);
    tooLong[32] = {{std::string(32, 't'), 1}};
    const struct {
        std::vector<support::OldClassifier::Class> classes;
        const char* complaint;
        bool serverRefuses;
    } cases[] = {
        {{{"a", {none, {{"x", 2}, {"y", 0}}}}, {"b", {}}}, "", false},
        {{{"", {none}}}, "8, class block 0: the name is empty", true},
        {{{"a", {none, {{"y", 2}, {"x", 1}}}}}, "30, class block 0 (\"a\"), lane 1, chunk 1 (\"x\")", false},
        {{{"a", {none, {{"xy", 2}}}}}, "21, class block 0 (\"a\"), lane 1: its 6 bytes are no", true},
        {{{"a", {none, {{"x", UINT32_MAX}, {"y", 1}}}}}, "8, class block 0 (\"a\"): its counts sum", true},
        {{{"a", tooLong}}, "149, class block 0 (\"a\"), lane 32, chunk 0 (\"ttt", true},
    };
    for (const std::uint32_t version : {3, 4}) {
        for (const auto& each : cases) {
            const util::Bytes bytes = support::OldClassifier{version, each.classes}.bytes();
            expectComplaint(bytes, each.complaint);
            EXPECT_EQ(!refusalOfServer(bytes).empty(), each.serverRefuses) << each.complaint;
        }
    }
    // Behind the name of the last class the data may end, so only that cut and the whole are sound.
    util::Bytes cut = support::OldClassifier{3, cases[0].classes}.bytes();
    for (cut.pop_back(); cut.size() >= 4; cut.pop_back()) {
        EXPECT_EQ(inspect(cut, 1).isSound(), refusalOfServer(cut).empty()) << cut.size();
    }
}

}  // namespace
}  // namespace halvern::morvane::client::files
