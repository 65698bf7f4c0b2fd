#include "classifier/storage/TokenDistribution.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "support/Hex.h"
#include "support/OldClassifier.h"
#include "util/database/DatabaseReader.h"

namespace halvern::classifier::storage {

TEST(TokenDistributionTest, BehavesAsAMap) {
    std::mt19937 random(5);
    TokenDistributionImpl distribution(3);
    std::map<std::string, std::uint32_t> model;
    for (int step = 0; step < 10000 && !HasFailure(); ++step) {
        std::string token(random() % 4, 0);
        std::generate(token.begin(), token.end(), [&] { return "\x01y\xff"[random() % 3]; });
        const std::uint32_t amount = 1 + random() % 3;
        std::uint32_t& count = model[token];
        if (random() % 2 == 0) {
            count += amount;
            EXPECT_EQ(distribution.add(token, amount), count);
        } else {
            count -= std::min(count, amount);
            EXPECT_EQ(distribution.sub(token, amount), count);
        }
        EXPECT_EQ(distribution.getCount(token), count);
        EXPECT_EQ(distribution.find(token.data(), token.size()).count, count);
        if (step % 97 == 0) {
            std::uint32_t total = 0;
            std::map<std::uint32_t, std::uint64_t> histogram, filled;
            support::OldClassifier::Class expected{"", std::vector<support::OldClassifier::Chunks>(4)};
            std::erase_if(model, [](const auto& entry) { return entry.second == 0; });
            for (const auto& [known, times] : model) {
                total += times;
                ++histogram[times];
                expected.lanes[known.size()].emplace_back(known, times);
            }
            EXPECT_EQ(distribution.getTotalCount(), total);
            EXPECT_EQ(distribution.getUniqueCount(), model.size());
            util::Bytes stored;
            distribution.serialize(stored);
            EXPECT_EQ(stored, expected.laneBytes());
            distribution.compact();
            EXPECT_EQ(distribution.getHistogram(filled), histogram);
        }
    }
}

TEST(TokenDistributionTest, TokensWithoutALaneOrACountAreUnknown) {
    const util::Bytes stored = support::fromHex("02 00 00 00 00 00 00 00 05 00 00 00 78 00 00 00 00");
    util::database::DatabaseReader reader(stored);
    TokenDistributionImpl distribution(30);
    distribution.add("old", 1);
    distribution.deserialize(reader);
    EXPECT_EQ(distribution.getUniqueCount(), 0u);
    EXPECT_EQ(distribution.find("y", 1).bytes, nullptr);
    EXPECT_EQ(distribution.getCount("old"), 0u);
    EXPECT_EQ(distribution.getCount("old", 3), 0u);
    EXPECT_EQ(distribution.sub("old", 1), 0u);
    EXPECT_EQ(distribution.add("x", 2), 2u);
    EXPECT_EQ(distribution.getUniqueCount(), 1u);
    distribution.deserialize(reader);
    EXPECT_EQ(distribution.getUniqueCount(), 0u) << "at the end of the data stands an empty distribution";
}

}  // namespace halvern::classifier::storage
