#include "classifier/storage/Migration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "classifier/ClassifierException.h"
#include "support/Classifiers.h"
#include "support/Failure.h"
#include "support/OldClassifier.h"
#include "support/StoredClassifier.h"

namespace halvern::classifier::storage {
namespace {

using support::bytesOf;
using support::classifierOf;
using support::OldClassifier;
using support::StoredClassifier;

// One lane for each length up to that of the longest token, in the order given.
OldClassifier::Class classOf(const std::string& name, const OldClassifier::Chunks& tokens) {
    OldClassifier::Class entry{name, {}};
    for (const auto& chunk : tokens) {
        entry.lanes.resize(std::max(entry.lanes.size(), chunk.first.size() + 1));
        entry.lanes[chunk.first.size()].push_back(chunk);
    }
    return entry;
}

TEST(MigrationTest, OldClassesMeetInTheLanesOfTheNewForm) {
    const std::string longest(31, 'z');
    const struct {
        OldClassifier old;
        StoredClassifier expected;
    } cases[] = {
        {{3, {}}, {5, 3, 0.05}},
        {{4, {classOf("a", {{"hi", 3}})}}, {5, 4, 0.05, {{"a", 0, 3, 1}}, {{"hi", 0, 3}}}},
        {{3,
          {classOf("b", {{"", 7}, {"x", 2}, {"\xff", 1}, {"yy", 0}, {longest, 4}, {longest + "zz", 0}}),
           classOf("none", {{"x", 0}}),
           classOf("a", {{"x", 1}, {"\x01", 5}, {"x", 2}}),
           {"last", {}}}},
         {5,
          3,
          0.05,
          {{"b", 0, 14, 4}, {"none", 1, 0, 0}, {"a", 2, 8, 2}, {"last", 3, 0, 0}},
          {{"", 0, 7}, {"\x01", 2, 5}, {"x", 0, 2}, {"x", 2, 3}, {"\xff", 0, 1}, {longest, 0, 4}}}},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(bytesOf(*classifierOf(row.old.bytes())), row.expected.bytes());
    }
    util::Bytes more = cases[2].old.bytes();
    more.insert(more.end(), {0, 0, 0, 0, 'r', 'e', 's', 't'});
    EXPECT_EQ(bytesOf(*classifierOf(more)), cases[2].expected.bytes());
}

TEST(MigrationTest, BrokenOldDataIsRefused) {
    const auto dataOf = [](OldClassifier::Class entry) { return OldClassifier{4, {entry}}.bytes(); };
    const auto overwritten = [&dataOf](std::size_t place) {
        util::Bytes data = dataOf(classOf("a", {{"hi", 3}}));
        std::fill_n(data.begin() + place, 4, '\xff');
        return data;
    };
    const struct {
        util::Bytes data;
        std::string reason;
    } cases[] = {
        {dataOf(classOf("", {{"x", 1}})), "empty name"},
        {OldClassifier{3, {classOf("a", {{"x", 1}}), {"a", {}}}}.bytes(), "already existing class"},
        {dataOf(classOf("a", {{"x", 4294967295}, {"y", 1}})), "beyond a total count of 4294967295"},
        {dataOf({"a", {{}, {{"xy", 1}}}}), "not a multiple of its token's size"},
        {dataOf(classOf("a", {{std::string(32, 'x'), 1}})), "a token that is too long to be stored"},
        {overwritten(4), "getNextPrimitive"},    // number of classes
        {overwritten(8), "getNextString"},       // length of the name
        {overwritten(13), "getNextPrimitive"},   // number of lanes
        {overwritten(25), "getNextCharStream"},  // size of a lane
    };
    for (const auto& row : cases) {
        EXPECT_THAT(support::failureOf<ClassifierException>([&] { classifierOf(row.data); }),
                    testing::HasSubstr(row.reason));
    }
}

}  // namespace
}  // namespace halvern::classifier::storage
