#include "classifier/storage/FeatureSet.h"

#include <gtest/gtest.h>

#include <new>

#include "classifier/ClassifierException.h"
#include "support/FailedCheck.h"
#include "support/FailingAllocation.h"
#include "support/Hex.h"
#include "util/database/DatabaseReader.h"

namespace halvern::classifier::storage {
namespace {

using util::database::DatabaseReader;
using util::database::DatabaseReaderException;

const std::string emptyLane = " 00 00 00 00";

std::string times(int count, const std::string& text) {
    std::string all;
    while (count-- > 0) {
        all += text;
    }
    return all;
}

// "a" holds "x" twice; "b" holds "x" once and "hi" three times.
const std::string twoClasses =
    "02 00 01 00 00 00 61 00 00 02 00 00 00 01 00 00 00 01 00 00 00 62 01 00 04 00 00 00 02 00 00 00" +
    emptyLane + " 02 00 00 00 78 00 00 02 00 00 00 78 01 00 01 00 00 00 01 00 00 00 68 69 01 00 03 00 00 00" +
    times(29, emptyLane);

util::Bytes serialized(const FeatureSet& set) {
    util::Bytes bytes;
    set.serialize(bytes);
    return bytes;
}

void load(FeatureSet& set, const util::Bytes& data) {
    DatabaseReader reader(data);
    set.deserialize(reader);
}

std::string refusal(const std::function<void()>& call) {
    try {
        call();
    } catch (const ClassifierException& e) {
        return e.what();
    } catch (const DatabaseReaderException& e) {
        return e.what();
    }
    return "";
}

TEST(FeatureSetTest, StoredBytesAreClassTableAndThirtyTwoLanes) {
    FeatureSet set;
    EXPECT_EQ(support::toHex(serialized(set)), "00 00" + times(32, emptyLane));
    set.addClass("a");
    set.addClass("b");
    set.add("b", "hi", 3);
    set.add("b", "x", 1);
    set.add("a", "x", 2);
    set.compact();
    EXPECT_EQ(support::toHex(serialized(set)), twoClasses);
    FeatureSet loaded;
    loaded.addClass("old");
    load(loaded, serialized(set));
    EXPECT_EQ(serialized(loaded), serialized(set));
}

TEST(FeatureSetTest, ClassNamesAreUniqueBytes) {
    FeatureSet set;
    EXPECT_EQ(refusal([&] { set.addClass(""); }), "Trying to add a class with an empty name.");
    set.addClass("a");
    set.addClass("A");
    EXPECT_EQ(
        refusal([&] { set.addClass("a"); }),
        "Trying to add an already existing class with the name 'a'. Use classExists to find out if a class "
        "already is added.");
    EXPECT_EQ(refusal([&] { set.removeClass("b"); }),
              "Trying to remove a nonexisting class with the name 'b'.");
    EXPECT_EQ(refusal([&] { set.getClass("b"); }), "Trying to get a nonexisting class with the name 'b'.");
    EXPECT_EQ(refusal([&] { set.add("b", "x", 1); }), "Trying to get a nonexisting class with the name 'b'.");
    EXPECT_EQ(refusal([&] { set.sub("b", "x", 1); }), "Trying to get a nonexisting class with the name 'b'.");
    EXPECT_EQ(set.classes().size(), 2u);
}

TEST(FeatureSetTest, RemovedClassMovesTheLaterOnesDown) {
    FeatureSet set;
    for (const char* const name : {"a", "b", "c"}) {
        set.addClass(name);
        set.add(name, name, 1);
        set.add(name, "", 2);
    }
    set.compact();
    set.removeClass("a");
    EXPECT_EQ(set.getClass("b")._classIndex, 0);
    EXPECT_EQ(set.getClass("c")._classIndex, 1);
    EXPECT_EQ(set.lane(1).find("b", 0), 1u);
    EXPECT_EQ(set.lane(1).find("c", 1), 1u);
    EXPECT_EQ(set.lane(0).totalCount(), 4u);
    set.clear();
    set.addClass("d");
    EXPECT_EQ(set.getClass("d")._classIndex, 0);
    EXPECT_EQ(set.lane(1).totalCount(), 0u);
}

TEST(FeatureSetTest, TotalsFollowWhatTheLanesHold) {
    FeatureSet set;
    set.addClass("a");
    const auto totals = [&set] { return std::pair(set.getClass("a")._count, set.getClass("a")._unique); };
    const std::string longest(31, 'l');
    set.add("a", "x", 3);
    set.add("a", "x", 2);
    set.add("a", longest, 1);
    EXPECT_EQ(totals(), std::pair(6u, 2u));
    set.sub("a", "y", 1);
    EXPECT_EQ(totals(), std::pair(6u, 2u));
    set.sub("a", "x", 10);
    EXPECT_EQ(totals(), std::pair(1u, 1u));
    set.compact();
    EXPECT_EQ(set.lane(31).find(longest, 0), 1u);
    EXPECT_EQ(set.lane(1).uniqueFeatures(), 0u);
    const std::string tooLong =
        "feature.size() < _lanes.size() / Add with feature bigger than max allowed size (32)";
    EXPECT_EQ(support::failedCheck([&] { set.add("a", longest + "l", 1); }), tooLong);
    EXPECT_EQ(support::failedCheck([&] { set.sub("a", longest + "l", 1); }), tooLong);
}

TEST(FeatureSetTest, TotalThatWouldNotFitIsRefused) {
    FeatureSet set;
    set.addClass("a");
    set.add("a", "x", 0xfffffff0);
    set.requireRoom("a", 15);
    EXPECT_THROW(set.requireRoom("a", 16), ClassifierException);
    EXPECT_THROW(set.requireRoom("a", std::uint64_t{1} << 32), ClassifierException);
    set.add("a", "y", 15);
    EXPECT_THROW(set.add("a", "z", 1), ClassifierException);
    set.compact();
    EXPECT_EQ(set.getClass("a")._count, 0xffffffffu);
    EXPECT_EQ(set.getClass("a")._unique, 2u);
    EXPECT_EQ(set.lane(1).find("z", 0), 0u);
}

TEST(FeatureSetTest, ClassIndexesEndBeforeTheyWrap) {
    // A class table of full size with names of two bytes; adding them one by one would take a minute.
    util::Bytes full = support::fromHex("ff ff");
    for (std::uint16_t i = 0; i < 65535; ++i) {
        const char name[] = {static_cast<char>(i), static_cast<char>(i >> 8)};
        util::database::writeString(full, std::string_view(name, 2));
        util::database::writePrimitive(full, i);
        util::database::writePrimitive(full, std::uint64_t{0});
    }
    full.resize(full.size() + 32 * 4);
    FeatureSet set;
    load(set, full);
    EXPECT_NE(refusal([&] { set.addClass("one more"); }).find("65535 classes"), std::string::npos);
    EXPECT_EQ(serialized(set), full);
    set.removeClass(std::string_view("\0\0", 2));
    set.addClass("one more");
    EXPECT_EQ(set.getClass("one more")._classIndex, 65534);
}

TEST(FeatureSetTest, CopyIsDeepAndSwapExchanges) {
    FeatureSet set;
    set.addClass("a");
    set.add("a", "x", 1);
    FeatureSet copy(set);
    copy.add("a", "x", 4);
    copy.compact();
    set.compact();
    EXPECT_EQ(set.lane(1).find("x", 0), 1u);
    EXPECT_EQ(copy.lane(1).find("x", 0), 5u);
    set.swap(copy);
    EXPECT_EQ(set.getClass("a")._count, 5u);
    EXPECT_EQ(copy.lane(1).find("x", 0), 1u);
}

TEST(FeatureSetTest, ExhaustedMemoryTrainsNothing) {
    FeatureSet set;
    set.addClass("a");
    for (const std::int64_t allowed : {0, 1}) {
        const auto addAndFail = [&] {
            const support::FailingAllocation failing(allowed);
            set.add("a", "x", 3);
        };
        EXPECT_THROW(addAndFail(), std::bad_alloc);
        EXPECT_EQ(set.getClass("a")._count, 0u);
        EXPECT_EQ(set.getClass("a")._unique, 0u);
    }
    set.compact();
    EXPECT_EQ(set.lane(1).find("x", 0), 0u);
}

TEST(FeatureSetTest, StoredTotalsAreTrustedButNeverGoBelowZero) {
    std::string data = twoClasses;
    data.replace(data.find("61 00 00 02 00 00 00 01"), 23, "61 00 00 01 00 00 00 00");
    FeatureSet set;
    load(set, support::fromHex(data));
    EXPECT_EQ(set.getClass("a")._count, 1u);
    set.sub("a", "x", 2);
    EXPECT_EQ(set.getClass("a")._count, 0u);
    EXPECT_EQ(set.getClass("a")._unique, 0u);
}

TEST(FeatureSetTest, CutDataIsRefusedAtEveryLength) {
    const util::Bytes whole = support::fromHex(twoClasses);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        FeatureSet set;
        set.addClass("old");
        EXPECT_NE(refusal([&] { load(set, util::Bytes(whole.begin(), whole.begin() + size)); }), "") << size;
        EXPECT_TRUE(set.classes().empty()) << size;
    }
}

// Whatever still loads with one byte changed must take everything that requests can do with it.
TEST(FeatureSetTest, ChangedDataIsRefusedOrServes) {
    const util::Bytes whole = support::fromHex(twoClasses);
    int refused = 0;
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const int change : {1, 2, 3, 4, 8, 16, 32, 64, 128, 255}) {
            util::Bytes data = whole;
            data[at] = static_cast<char>(data[at] ^ change);
            FeatureSet set;
            if (const std::string reason = refusal([&] { load(set, data); }); !reason.empty()) {
                ASSERT_EQ(reason.find("The database is corrupt, "), 0u);
                ++refused;
                continue;
            }
            ASSERT_EQ(support::toHex(serialized(set)), support::toHex(data));
            ParameterAccessor accessor(set.classes().size());
            std::vector<std::string> names;
            for (std::size_t length = 0; length < FeatureSet::laneCount; ++length) {
                std::vector<std::string> features;
                LaneIterator record = set.lane(length).begin();
                for (; record.record != set.lane(length).end().record; record.record += record.stride) {
                    features.emplace_back(record.record, length);
                    set.lane(length).lookup(features.back(), accessor);
                    ASSERT_GT(accessor.classes, 0);
                }
                for (const std::string& feature : features) {
                    for (const ClassEntry& entry : set.classes()) {
                        set.sub(entry.name, feature, 2);
                    }
                }
            }
            set.compact();
            for (const ClassEntry& entry : set.classes()) {
                names.push_back(entry.name);
            }
            for (const std::string& name : names) {
                set.removeClass(name);
            }
            ASSERT_TRUE(set.classes().empty());
        }
    }
    EXPECT_GT(refused, 500);
}

}  // namespace
}  // namespace halvern::classifier::storage
