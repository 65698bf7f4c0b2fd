#include "classifier/storage/VectorLane.h"

#include <gtest/gtest.h>

#include <typeinfo>

#include "classifier/storage/LaneFactory.h"

namespace halvern::classifier::storage {

TEST(VectorLaneTest, ChangesWaitForCompactionAndKeepTheirPlaces) {
    VectorLane<3> lane;
    std::uint32_t removed = 7;
    EXPECT_FALSE(lane.sub("abc", 2, 1, removed));
    EXPECT_EQ(removed, 0u);
    EXPECT_TRUE(lane.add("abc", 2, 5));
    EXPECT_FALSE(lane.isCompact());
    EXPECT_TRUE(lane.sub("abc", 2, 9, removed));
    EXPECT_EQ(removed, 5u);
    EXPECT_TRUE(lane.isCompact()) << "the last new record has gone";

    lane.add("abc", 2, 5);
    lane.compact();
    const char* const place = lane.begin().record;
    lane.compact();
    EXPECT_FALSE(lane.add("abc", 2, 1));
    EXPECT_TRUE(lane.isCompact());
    EXPECT_TRUE(lane.sub("abc", 2, 6, removed));
    EXPECT_FALSE(lane.isCompact());
    EXPECT_FALSE(lane.sub("abc", 2, 1, removed));
    EXPECT_EQ(removed, 0u);
    EXPECT_TRUE(lane.add("abc", 2, 1));
    EXPECT_TRUE(lane.isCompact());
    EXPECT_EQ(lane.begin().record, place) << "what comes back takes its old place";
}

TEST(VectorLaneTest, WhatCameAndWentBeforeAClassIsRemovedLeavesNothingBehind) {
    VectorLane<3> lane;
    lane.add("xyz", 2, 5);
    lane.compact();
    lane.add("xyz", 1, 1);
    std::uint32_t removed = 0;
    lane.sub("xyz", 1, 1, removed);
    lane.removeClass(0);
    EXPECT_FALSE(lane.add("xyz", 1, 1)) << "that class has moved down to 1";
    EXPECT_TRUE(lane.isCompact());
    EXPECT_EQ(lane.find("xyz", 1), 6u);
    EXPECT_TRUE(lane.add("xyz", 0, 2));
    lane.compact();
    EXPECT_EQ(lane.totalCount(), 8u);
}

TEST(VectorLaneTest, LanesKnowTheirLength) {
    const VectorLaneFactory factory;
    for (const auto& [length, stride] : {std::pair(0, 7), {1, 7}, {8, 14}, {31, 37}}) {
        const auto lane = factory.create(length);
        EXPECT_EQ(lane->begin().record, nullptr);
        EXPECT_EQ(lane->end().record, nullptr);
        EXPECT_EQ(lane->end().stride, stride);
        EXPECT_EQ(lane->end().featureSize, length);
    }
    EXPECT_EQ(factory.create(32), nullptr);
    EXPECT_THROW(factory.clone(3, *factory.create(4)), std::bad_cast);
}

TEST(VectorLaneTest, LanesAreEqualThatHoldTheSame) {
    const VectorLaneFactory factory;
    const auto lane = factory.create(2);
    lane->add("hi", 1, 3);
    lane->add("hi", 0, 2);
    lane->add("ho", 0, 1);
    lane->compact();
    EXPECT_EQ(lane->totalCount(), 6u);
    EXPECT_EQ(lane->uniqueFeatures(), 2u);
    const auto other = factory.clone(2, *lane);
    EXPECT_TRUE(*lane == *other);
    other->add("hi", 1, 1);
    EXPECT_FALSE(*lane == *other) << "the changed record stands in front of the shared one";
    std::uint32_t removed = 0;
    other->sub("hi", 1, 1, removed);
    EXPECT_TRUE(*lane == *other);
    other->sub("hi", 1, 9, removed);
    EXPECT_FALSE(*lane == *other);
    other->clear();
    EXPECT_FALSE(*lane == *other);
    EXPECT_FALSE(*lane == *factory.create(3));
}

TEST(VectorLaneTest, HashTakesBytesAsSignedAndNothingButTheKey) {
    // By hand: FF is -1, then 01, then the class folded into the fold of these.
    EXPECT_EQ(FeatureRecord<2>("\xff\x01", 3, 8).hash(), 0xa4c87f4e307u);
    FeatureRecord<0> filled("", 4, 1);
    filled.feature[0] = 'x';
    const FeatureRecord<0> plain("", 4, 2);
    EXPECT_TRUE(filled == plain && !(filled < plain) && !(plain < filled));
    EXPECT_EQ(filled.hash(), plain.hash());
}

}  // namespace halvern::classifier::storage
