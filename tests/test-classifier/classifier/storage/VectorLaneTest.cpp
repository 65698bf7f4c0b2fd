#include "classifier/storage/VectorLane.h"

#include <gtest/gtest.h>

#include <map>
#include <new>
#include <random>
#include <set>
#include <typeinfo>
#include <vector>

#include "classifier/ClassifierException.h"
#include "classifier/storage/LaneFactory.h"
#include "support/FailedCheck.h"
#include "support/FailingAllocation.h"
#include "support/Hex.h"
#include "util/database/DatabaseReader.h"

namespace halvern::classifier::storage {
namespace {

using util::database::DatabaseReader;
using util::database::DatabaseReaderException;

util::Bytes serialized(const LaneBase& lane) {
    util::Bytes bytes;
    lane.serialize(bytes);
    return bytes;
}

// "x0" for feature x in class 0, one word a record.
std::string keysOf(const LaneBase& lane) {
    std::string keys;
    const LaneIterator end = lane.end();
    for (LaneIterator at = lane.begin(); at.record != end.record; at.record += at.stride) {
        const char* const parameter = at.record + at.stride - sizeof(Parameter);
        if (!keys.empty()) {
            keys += ' ';
        }
        keys.append(at.record, at.featureSize);
        keys += static_cast<char>('0' + *parameter);
    }
    return keys;
}

std::uint32_t removedBy(LaneBase& lane, std::string_view feature, std::uint16_t classIndex,
                        std::uint32_t count, bool expectLost) {
    std::uint32_t removed = 77;
    EXPECT_EQ(lane.sub(feature, classIndex, count, removed), expectLost);
    return removed;
}

TEST(VectorLaneTest, NewRecordWaitsForCompaction) {
    VectorLane<3> lane;
    EXPECT_TRUE(lane.add("abc", 2, 5));
    EXPECT_FALSE(lane.add("abc", 2, 6));
    EXPECT_FALSE(lane.isCompact());
    ParameterAccessor accessor(3);
    const std::string notCompact = "isCompact() / The lane has not been compacted since training";
    EXPECT_EQ(support::failedCheck([&] { lane.lookup("abc", accessor); }), notCompact);
    EXPECT_EQ(support::failedCheck([&] { lane.find("abc", 2); }), notCompact);
    EXPECT_EQ(support::failedCheck([&] { serialized(lane); }), notCompact);
    EXPECT_EQ(support::failedCheck([&] { lane.removeClass(2); }), notCompact);
    EXPECT_EQ(support::failedCheck([&] { lane.begin(); }), notCompact);
    EXPECT_EQ(support::failedCheck([&] { lane.totalCount(); }), notCompact);
    EXPECT_EQ(support::failedCheck([&] { lane.uniqueFeatures(); }), notCompact);
    lane.compact();
    EXPECT_EQ(lane.find("abc", 2), 11u);
    const char* const array = lane.begin().record;
    lane.compact();
    EXPECT_EQ(lane.begin().record, array);
    EXPECT_FALSE(lane.add("abc", 2, 1));
    EXPECT_TRUE(lane.isCompact());
}

TEST(VectorLaneTest, ChecksLengthsAndCounts) {
    VectorLane<3> lane;
    std::uint32_t removed = 0;
    EXPECT_EQ(support::failedCheck([&] { lane.add("abcd", 0, 1); }),
              "feature.size() == N / A feature has other than lane size");
    EXPECT_EQ(support::failedCheck([&] { lane.find("ab", 0); }),
              "feature.size() == N / A feature has other than lane size");
    EXPECT_EQ(support::failedCheck([&] { lane.add("abc", 0, 0); }),
              "count > 0 / Trying to add zero or below feature count");
    EXPECT_EQ(support::failedCheck([&] { lane.sub("abc", 0, 0, removed); }),
              "count > 0 / Trying to sub zero or below feature count");
}

TEST(VectorLaneTest, RecordThatComesBackTakesItsOldPlace) {
    VectorLane<3> lane;
    lane.add("abc", 2, 5);
    lane.compact();
    const char* const place = lane.begin().record;
    EXPECT_EQ(removedBy(lane, "abc", 2, 9, true), 5u);
    EXPECT_FALSE(lane.isCompact());
    EXPECT_EQ(removedBy(lane, "abc", 2, 1, false), 0u);
    EXPECT_TRUE(lane.add("abc", 2, 1));
    EXPECT_TRUE(lane.isCompact());
    EXPECT_EQ(lane.begin().record, place);
    EXPECT_EQ(lane.find("abc", 2), 1u);

    EXPECT_EQ(removedBy(lane, "abc", 2, 1, true), 1u);
    lane.compact();
    EXPECT_EQ(lane.begin().record, nullptr);
    EXPECT_EQ(lane.end().record, nullptr);
}

TEST(VectorLaneTest, LastNewRecordTakenOffLeavesTheLaneCompact) {
    VectorLane<1> lane;
    EXPECT_EQ(removedBy(lane, "x", 0, 1, false), 0u);
    lane.add("x", 0, 4);
    EXPECT_EQ(removedBy(lane, "x", 0, 3, false), 3u);
    EXPECT_EQ(removedBy(lane, "x", 0, 3, true), 1u);
    EXPECT_TRUE(lane.isCompact());
}

TEST(VectorLaneTest, CountThatWouldNotFitIsRefused) {
    VectorLane<1> lane;
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(lane.add("x", 0, 0xffffffff));
        EXPECT_THROW(lane.add("x", 0, 1), ClassifierException);
        lane.compact();
        EXPECT_THROW(lane.add("x", 0, 0xffffffff), ClassifierException);
        EXPECT_EQ(lane.find("x", 0), 0xffffffffu);
        EXPECT_EQ(removedBy(lane, "x", 0, 0xffffffff, true), 0xffffffffu);
    }
}

TEST(VectorLaneTest, RemovedClassTakesItsRecordsAlong) {
    VectorLane<1> lane;
    for (const auto& [feature, classIndex] :
         std::vector<std::pair<const char*, std::uint16_t>>{{"y", 2}, {"x", 1}, {"x", 2}, {"x", 0}}) {
        lane.add(feature, classIndex, 1);
    }
    lane.compact();
    EXPECT_EQ(keysOf(lane), "x0 x1 x2 y2");
    EXPECT_EQ(lane.uniqueFeatures(), 2u);
    lane.removeClass(1);
    EXPECT_EQ(keysOf(lane), "x0 x1 y1");
    lane.removeClass(7);
    EXPECT_EQ(keysOf(lane), "x0 x1 y1");
}

TEST(VectorLaneTest, EmptyLaneStillTellsItsSizes) {
    const VectorLaneFactory factory;
    for (const auto& [length, stride] :
         std::map<std::size_t, std::uint64_t>{{0, 7}, {1, 7}, {8, 14}, {31, 37}}) {
        const auto lane = factory.create(length);
        EXPECT_EQ(lane->begin().record, nullptr);
        EXPECT_EQ(lane->end().stride, stride);
        EXPECT_EQ(lane->end().featureSize, length);
        EXPECT_EQ(support::toHex(serialized(*lane)), "00 00 00 00");
    }
}

TEST(VectorLaneTest, FactoryKnowsThirtyTwoLengths) {
    const VectorLaneFactory factory;
    EXPECT_NE(factory.create(31), nullptr);
    EXPECT_EQ(factory.create(32), nullptr);
    EXPECT_THROW(factory.clone(3, *factory.create(4)), std::bad_cast);
}

TEST(VectorLaneTest, EqualityIsThatOfLengthKeysAndCounts) {
    const VectorLaneFactory factory;
    const auto lane = factory.create(2);
    lane->add("hi", 1, 3);
    lane->compact();
    const auto other = factory.clone(2, *lane);
    EXPECT_TRUE(*lane == *other);
    other->add("hi", 1, 1);
    EXPECT_FALSE(*lane == *other);
    other->clear();
    EXPECT_FALSE(*lane == *other);
    EXPECT_FALSE(*lane == *factory.create(3));
}

TEST(VectorLaneTest, LoadingRefusesRecordsThatWouldFailLater) {
    const std::string end = "Method getNextCharStream.";
    const struct {
        const char* data;
        const char* reason;  // empty if the data is sound
    } cases[] = {
        {"02 00 00 00 78 00 00 02 00 00 00 78 01 00 01 00 00 00", ""},
        {"02 00 00 00 78 01 00 02 00 00 00 78 00 00 01 00 00 00", "not in order"},
        {"02 00 00 00 79 00 00 02 00 00 00 78 01 00 01 00 00 00", "not in order"},
        {"02 00 00 00 78 01 00 02 00 00 00 78 01 00 01 00 00 00", "not in order"},
        {"02 00 00 00 ff 00 00 02 00 00 00 01 01 00 01 00 00 00", "not in order"},
        {"01 00 00 00 78 02 00 01 00 00 00", "class that does not exist"},
        {"01 00 00 00 78 00 00 00 00 00 00", "count of 0"},
        {"ff ff ff ff 78 00 00 01 00 00 00", "Method getNextCharStream."},
        {"02 00 00 00 78 00 00 01 00 00 00", "Method getNextCharStream."},
        {"02 00 00", "Method getNextPrimitive."},
    };
    for (const auto& oneCase : cases) {
        SCOPED_TRACE(oneCase.data);
        const util::Bytes data = support::fromHex(oneCase.data);
        DatabaseReader reader(data);
        VectorLane<1> lane;
        lane.add("o", 0, 1);
        std::string reason;
        try {
            lane.deserialize(reader, 2);
            EXPECT_EQ(serialized(lane), data);
        } catch (const DatabaseReaderException& e) {
            reason = e.what();
            EXPECT_EQ(serialized(lane), util::Bytes(4, 0));
        }
        EXPECT_EQ(reason.empty(), oneCase.reason[0] == 0) << reason;
        EXPECT_NE(reason.find(oneCase.reason), std::string::npos) << reason;
        EXPECT_TRUE(reason.empty() || reason.find("The database is corrupt, ") == 0) << reason;
    }
}

TEST(VectorLaneTest, FillerOfTheEmptyFeatureHasNoMeaning) {
    const util::Bytes data = support::fromHex("02 00 00 00 ff 00 00 02 00 00 00 01 01 00 03 00 00 00");
    DatabaseReader reader(data);
    VectorLane<0> lane;
    lane.deserialize(reader, 2);
    EXPECT_EQ(lane.uniqueFeatures(), 1u);
    EXPECT_EQ(lane.find("", 1), 3u);
    VectorLane<0> same;
    same.add("", 1, 3);
    same.add("", 0, 2);
    same.compact();
    EXPECT_TRUE(lane == same);
}

// Every piece of memory that add, compact or a copy asks for is denied once, and the lane must be as before.
TEST(VectorLaneTest, ExhaustedMemoryLeavesTheLaneAsItWas) {
    VectorLane<2> lane;
    lane.add("bb", 0, 1);
    lane.add("dd", 0, 1);
    lane.compact();
    removedBy(lane, "dd", 0, 1, true);
    lane.add("aa", 0, 2);
    lane.add("cc", 1, 3);
    int failures = 0;
    const auto untilItWorks = [&failures](const auto& call) {
        for (std::int64_t allowed = 0;; ++allowed) {
            try {
                const support::FailingAllocation failing(allowed);
                call();
                return;
            } catch (const std::bad_alloc&) {
                ++failures;
            }
        }
    };
    for (std::uint16_t classIndex = 2; classIndex < 40; ++classIndex) {
        untilItWorks([&] { EXPECT_TRUE(lane.add("cc", classIndex, 1)); });
    }
    EXPECT_GE(failures, 38);
    failures = 0;
    untilItWorks([&] { const VectorLane<2> copy(lane); });
    EXPECT_GE(failures, 2);
    failures = 0;
    untilItWorks([&] { lane.compact(); });
    EXPECT_GE(failures, 2);
    EXPECT_EQ(lane.totalCount(), 1u + 2 + 3 + 38);
    EXPECT_EQ(keysOf(lane).substr(0, 11), "aa0 bb0 cc1");
}

// Few letters at few places, so that keys come back often; the highest and the lowest byte are among them.
std::string randomFeature(std::mt19937& random, std::size_t length) {
    std::string feature(length, 'm');
    if (length > 0) {
        for (const std::size_t place : {std::size_t{0}, length / 2, length - 1}) {
            feature[place] = "\0a\x7f\x80\xff"[random() % 5];
        }
    }
    return feature;
}

class LaneModelTest : public testing::TestWithParam<std::size_t> {};

TEST_P(LaneModelTest, BehavesAsASortedMap) {
    const std::size_t length = GetParam();
    const std::uint16_t classCount = 5;
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const VectorLaneFactory factory;
    auto lane = factory.create(length);
    std::map<std::pair<std::string, std::uint16_t>, std::uint32_t> model;
    const auto compare = [&] {
        lane->compact();
        util::Bytes expected;
        std::uint32_t total = 0;
        std::map<std::string, std::vector<std::uint32_t>> features;
        util::database::writePrimitive(expected, static_cast<std::uint32_t>(model.size()));
        for (const auto& [key, count] : model) {
            const std::string stored = length == 0 ? std::string(1, '\0') : key.first;
            expected.insert(expected.end(), stored.begin(), stored.end());
            util::database::writePrimitive(expected, key.second);
            util::database::writePrimitive(expected, count);
            total += count;
            features.try_emplace(key.first, classCount).first->second[key.second] = count;
        }
        EXPECT_EQ(serialized(*lane), expected);
        EXPECT_EQ(lane->totalCount(), total);
        EXPECT_EQ(lane->uniqueFeatures(), features.size());
        ParameterAccessor accessor(classCount);
        for (int i = 0; i < 20; ++i) {
            features.try_emplace(randomFeature(random, length), classCount);
        }
        for (const auto& [feature, counts] : features) {
            EXPECT_EQ(&lane->lookup(feature, accessor), &accessor);
            EXPECT_EQ(accessor._parameters, counts);
            const auto holders = classCount - std::count(counts.begin(), counts.end(), 0u);
            EXPECT_EQ(accessor.classes, holders);
            EXPECT_EQ(accessor.feature != nullptr, holders > 0);
            EXPECT_TRUE(holders == 0 || std::string(accessor.feature, length) == feature);
            EXPECT_EQ(lane->find(feature, 3), counts[3]);
        }
    };
    for (int round = 0; round < 60 && !HasFailure(); ++round) {
        for (std::size_t step = random() % 120; step > 0; --step) {
            const std::string feature = randomFeature(random, length);
            const std::uint16_t classIndex = random() % classCount;
            const std::uint32_t amount = 1 + random() % 3;
            auto entry = model.find({feature, classIndex});
            if (random() % 2 == 0) {
                EXPECT_EQ(lane->add(feature, classIndex, amount), entry == model.end());
                model[{feature, classIndex}] += amount;
                continue;
            }
            const std::uint32_t held = entry == model.end() ? 0 : entry->second;
            EXPECT_EQ(removedBy(*lane, feature, classIndex, amount, held > 0 && held <= amount),
                      std::min(held, amount));
            if (held > amount) {
                entry->second -= amount;
            } else if (held > 0) {
                model.erase(entry);
            }
        }
        if (round % 3 == 0) {
            lane = factory.clone(length, *lane);
        }
        compare();
        if (round % 10 == 9) {
            const std::uint16_t gone = random() % classCount;
            lane->removeClass(gone);
            decltype(model) packed;
            for (const auto& [key, count] : model) {
                if (key.second != gone) {
                    packed[{key.first, key.second - (key.second > gone ? 1 : 0)}] = count;
                }
            }
            model.swap(packed);
            compare();
        }
        if (round % 7 == 6) {
            const util::Bytes stored = serialized(*lane);
            DatabaseReader reader(stored);
            lane->deserialize(reader, classCount);
            EXPECT_TRUE(reader.atEnd());
            compare();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Lengths, LaneModelTest, testing::Values(0, 1, 2, 3, 4, 7, 8, 9, 15, 16, 17, 30, 31));

}  // namespace
}  // namespace halvern::classifier::storage
