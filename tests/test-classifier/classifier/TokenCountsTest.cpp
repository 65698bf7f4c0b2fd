#include "classifier/TokenCounts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace halvern::classifier {

// The bytes without a pattern are so many that two are likely to share the 32 bits of their hash.
// The others are NULs with tails of a few bytes, whose lengths the fill of the hash's last block must not
// hide.
TEST(TokenCountsTest, CountsInTheOrderOfFirstOccurrence) {
    std::mt19937 random(7);
    TokenCounts tokenCounts;
    std::unordered_map<std::string, std::uint32_t> model;
    std::vector<std::string> order;
    for (int i = 0; i < 150000; ++i) {
        std::string token(random() % 40, '\0');
        const std::size_t places = i % 10 == 0 ? std::min<std::size_t>(token.size(), 1) : token.size();
        for (std::size_t place = 0; place < places; ++place) {
            token[token.size() - 1 - place] = static_cast<char>(random() % (i % 10 == 0 ? 50 : 256));
        }
        if (model[token]++ == 0) {
            order.push_back(token);
        }
        tokenCounts.add(token);
    }
    ASSERT_EQ(tokenCounts.size(), order.size());
    auto expected = order.begin();
    for (const auto& [token, count] : tokenCounts) {
        ASSERT_EQ(token, *expected);
        ASSERT_EQ(count, model[*expected++]);
    }
}

}  // namespace halvern::classifier
