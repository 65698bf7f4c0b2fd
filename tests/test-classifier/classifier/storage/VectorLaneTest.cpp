#include "classifier/storage/VectorLane.h"

#include <gtest/gtest.h>

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

}  // namespace halvern::classifier::storage
