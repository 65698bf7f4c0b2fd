#include "classifier/storage/TokenDistribution.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "support/FailedCheck.h"
#include "support/Hex.h"
#include "util/database/DatabaseReader.h"

namespace halvern::classifier::storage {
namespace {

using Model = std::map<std::string, std::uint32_t>;

util::Bytes serialized(const TokenDistribution& distribution) {
    util::Bytes bytes;
    distribution.serialize(bytes);
    return bytes;
}

// Short tokens first, then bytes; as the lanes hold them.
util::Bytes expectedBytes(const Model& model, std::uint32_t laneCount) {
    util::Bytes bytes;
    util::database::writePrimitive(bytes, laneCount);
    for (std::uint32_t size = 0; size < laneCount; ++size) {
        util::Bytes lane;
        for (const auto& [token, count] : model) {
            if (token.size() == size && count > 0) {
                lane.insert(lane.end(), token.begin(), token.end());
                util::database::writePrimitive(lane, count);
            }
        }
        util::database::writePrimitive(bytes, static_cast<std::uint32_t>(lane.size()));
        bytes.insert(bytes.end(), lane.begin(), lane.end());
    }
    return bytes;
}

TEST(TokenDistributionTest, BehavesAsAMap) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    TokenDistributionImpl distribution(3);
    Model model;
    for (int step = 0; step < 20000 && !HasFailure(); ++step) {
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
        if (step % 50 == 0) {
            distribution.compact();
        }
        if (step % 97 == 0) {
            std::uint32_t total = 0;
            std::map<std::uint32_t, std::uint64_t> histogram;
            std::erase_if(model, [](const auto& entry) { return entry.second == 0; });
            for (const auto& entry : model) {
                total += entry.second;
                ++histogram[entry.second];
            }
            EXPECT_EQ(distribution.getTotalCount(), total);
            EXPECT_EQ(distribution.getUniqueCount(), model.size());
            EXPECT_EQ(serialized(distribution), expectedBytes(model, 4));
            distribution.compact();
            std::map<std::uint32_t, std::uint64_t> filled;
            EXPECT_EQ(&distribution.getHistogram(filled), &filled);
            EXPECT_EQ(filled, histogram);
        }
    }
    const util::Bytes stored = serialized(distribution);
    util::database::DatabaseReader reader(stored);
    TokenDistributionImpl loaded(30);
    loaded.deserialize(reader);
    EXPECT_EQ(serialized(loaded), stored);
    EXPECT_EQ(loaded.getTotalCount(), distribution.getTotalCount());
    loaded.deserialize(reader);
    EXPECT_EQ(loaded.getUniqueCount(), 0u);
}

TEST(TokenDistributionTest, KnowsNothingOfTokensBeyondItsLanes) {
    TokenDistributionImpl distribution(2);
    EXPECT_EQ(distribution.getCount("abc"), 0u);
    EXPECT_EQ(distribution.getCount("abc", 3), 0u);
    EXPECT_EQ(distribution.find("ab", 2).bytes, nullptr);
    EXPECT_EQ(distribution.sub("abc", 1), 0u);
    EXPECT_NE(support::failedCheck([&] { distribution.add("abc", 1); }), "");
    EXPECT_NE(support::failedCheck([&] { distribution.add("ab", 0); }), "");
    EXPECT_NE(support::failedCheck([] { MemoryLane(2).getCount("abc"); }), "");
}

TEST(TokenDistributionTest, StoredTokenWithoutCountComesBack) {
    const util::Bytes stored = support::fromHex("02 00 00 00 00 00 00 00 05 00 00 00 78 00 00 00 00");
    util::database::DatabaseReader reader(stored);
    TokenDistributionImpl distribution(30);
    distribution.deserialize(reader);
    EXPECT_EQ(distribution.getUniqueCount(), 0u);
    EXPECT_EQ(distribution.add("x", 2), 2u);
    EXPECT_EQ(distribution.getUniqueCount(), 1u);
}

}  // namespace
}  // namespace halvern::classifier::storage
