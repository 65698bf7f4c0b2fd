#include "classifier/storage/Migration.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "classifier/ClassifierException.h"
#include "classifier/ClassifierImpl.h"
#include "support/OldClassifier.h"
#include "support/StoredClassifier.h"
#include "util/database/DatabaseReader.h"

namespace halvern::classifier::storage {
namespace {

using support::OldClassifier;
using support::StoredClassifier;

// The bytes that a classifier of this content saves, or the text of its refusal.
std::string savedFrom(const util::Bytes& data) {
    ClassifierImpl classifier(nullptr, 0.5);
    try {
        classifier.setTrainingData(data);
    } catch (const ClassifierException& e) {
        EXPECT_TRUE(classifier.getInformation().empty());
        return e.what();
    }
    util::Bytes saved;
    classifier.getTrainingData(saved);
    return std::string(saved.begin(), saved.end());
}

std::string asText(const StoredClassifier& stored) {
    const util::Bytes bytes = stored.bytes();
    return std::string(bytes.begin(), bytes.end());
}

// One lane for each length up to that of the longest token; a token that stands first comes first in its
// lane.
OldClassifier::Class classOf(const std::string& name, const OldClassifier::Chunks& tokens) {
    OldClassifier::Class entry{name, {}};
    for (const auto& chunk : tokens) {
        entry.lanes.resize(std::max(entry.lanes.size(), chunk.first.size() + 1));
        entry.lanes[chunk.first.size()].push_back(chunk);
    }
    return entry;
}

TEST(MigrationTest, OldVersionBecomesExtractorVersion) {
    for (const std::uint32_t version : {3u, 4u}) {
        const OldClassifier old{version, {classOf("a", {{"hi", 3}})}};
        EXPECT_EQ(savedFrom(old.bytes()), asText({5, version, 0.05, {{"a", 0, 3, 1}}, {{"hi", 0, 3}}}));
        EXPECT_EQ(savedFrom(OldClassifier{version, {}}.bytes()), asText({5, version}));
    }
}

TEST(MigrationTest, TokensOfAllClassesMeetInTheirLanes) {
    const std::string longest(30, 'z');
    const OldClassifier old{3,
                            {classOf("b", {{"", 7}, {"x", 2}, {"\xff", 1}, {"yy", 0}, {longest, 4}}),
                             classOf("none", {{"x", 0}}),
                             classOf("a", {{"\x01", 5}, {"x", 3}}),
                             {"last", {}}}};
    const std::string expected =
        asText({5,
                3,
                0.05,
                {{"b", 0, 14, 4}, {"none", 1, 0, 0}, {"a", 2, 8, 2}, {"last", 3, 0, 0}},
                {{"", 0, 7}, {"\x01", 2, 5}, {"x", 0, 2}, {"x", 2, 3}, {"\xff", 0, 1}, {longest, 0, 4}}});
    EXPECT_EQ(savedFrom(old.bytes()), expected);
    util::Bytes more = old.bytes();
    more.insert(more.end(), 4, 0);
    more.insert(more.end(), {'r', 'e', 's', 't'});
    EXPECT_EQ(savedFrom(more), expected);
}

TEST(MigrationTest, BrokenOldDataIsRefused) {
    const std::string corrupt = "The data that the Classifier is being set with seems to be corrupt. ";
    const auto refusalOf = [](std::vector<OldClassifier::Class> classes) {
        return savedFrom(OldClassifier{4, std::move(classes)}.bytes());
    };
    EXPECT_EQ(refusalOf({classOf("", {{"x", 1}})}), "Trying to add a class with an empty name.");
    EXPECT_EQ(
        refusalOf({classOf("a", {{"x", 1}}), {"a", {}}}),
        "Trying to add an already existing class with the name 'a'. Use classExists to find out if a class "
        "already is added.");
    EXPECT_EQ(
        refusalOf({{"a", {{}, {{"xy", 1}}}}}),
        corrupt + "The database is corrupt, the size of a token lane is not a multiple of its token's size.");
    util::Bytes cutToo = OldClassifier{3, {{"a", {{}, {{"xy", 1}}}}}}.bytes();
    cutToo.pop_back();
    EXPECT_NE(savedFrom(cutToo).find("Method getNextCharStream."), std::string::npos);
    EXPECT_EQ(refusalOf({classOf("a", {{std::string(32, 'x'), 1}})}),
              corrupt + "The database is corrupt, it holds a token that is too long to be stored.");
    EXPECT_NE(refusalOf({classOf("a", {{"x", 0xffffffff}, {"y", 1}})}).find("total count"),
              std::string::npos);
    // Long lanes that hold nothing are no harm.
    EXPECT_EQ(refusalOf({classOf("a", {{std::string(31, 'x'), 1}, {std::string(40, 'x'), 0}})}),
              asText({5, 4, 0.05, {{"a", 0, 1, 1}}, {{std::string(31, 'x'), 0, 1}}}));
}

// All numbers of the data stand behind a length or a count, so that any cut meets a member that isn't whole;
// but a class may end behind its name.
TEST(MigrationTest, CutOldDataIsRefused) {
    const util::Bytes whole = OldClassifier{3, {classOf("a", {{"hi", 3}}), classOf("b", {{"x", 1}})}}.bytes();
    const std::size_t behindLastName = whole.size() - 4 - 4 - 9;
    for (std::size_t size = 4; size < whole.size(); ++size) {
        const std::string text = savedFrom(util::Bytes(whole.begin(), whole.begin() + size));
        EXPECT_EQ(text.find("seems to be corrupt. The database is corrupt, ") == std::string::npos,
                  size == behindLastName)
            << size;
    }
}

TEST(MigrationTest, ChangedOldDataLoadsOrIsRefused) {
    const util::Bytes whole = OldClassifier{4, {classOf("a", {{"hi", 3}}), classOf("b", {{"x", 1}})}}.bytes();
    int loaded = 0;
    for (std::size_t at = 4; at < whole.size(); ++at) {
        for (const int change : {1, 2, 3, 4, 8, 16, 32, 64, 128, 255}) {
            util::Bytes data = whole;
            data[at] = static_cast<char>(data[at] ^ change);
            const std::string text = savedFrom(data);
            loaded += text[0] == 5 ? 1 : 0;
            ASSERT_TRUE(text[0] == 5 || text.find("Trying to") == 0 ||
                        text.find("corrupt") != std::string::npos)
                << text;
        }
    }
    // Names, tokens and counts may be anything.
    EXPECT_GT(loaded, 80);
}

TEST(MigrationTest, DamagedLaneCountAllocatesNoMoreThanTheDataBears) {
    util::Bytes data = OldClassifier{3, {classOf("a", {{"hi", 3}})}}.bytes();
    std::fill_n(data.begin() + 13, 4, '\xff');
    EXPECT_NE(savedFrom(data).find("getNextPrimitive"), std::string::npos);
}

TEST(MigrationTest, KnowsItsVersions) {
    util::Bytes out;
    const util::Bytes current = StoredClassifier().bytes();
    migrate(current, out);
    EXPECT_EQ(out, current);
    try {
        migrate(OldClassifier{2, {}}.bytes(), out);
        ADD_FAILURE();
    } catch (const MigrationException& e) {
        EXPECT_STREQ(e.what(), "Expected to migrate from v3 or c4");
    }
}

}  // namespace
}  // namespace halvern::classifier::storage
