#include "classifier/TokenCounts.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

namespace halvern::classifier {

TEST(TokenCountsTest, CountsLikeAMapInTheOrderOfFirstOccurrence) {
    std::mt19937 random(7);
    for (const unsigned longest : {1u, 3u, 27u, 28u, 29u, 31u, 100u}) {
        TokenCounts tokenCounts;
        EXPECT_TRUE(tokenCounts.empty());
        std::map<std::string, std::uint32_t> model;
        std::vector<std::string> order;
        for (int i = 0; i < 20000; ++i) {
            // NULs and tails of equal tokens: the fill of the last block must not hide the length.
            std::string token(random() % (longest + 1), '\0');
            if (!token.empty()) {
                token[random() % token.size()] = static_cast<char>(random() % 3);
                token.back() = static_cast<char>(random() % 50);
            }
            if (model[token]++ == 0) {
                order.push_back(token);
            }
            tokenCounts.add(token);
        }
        ASSERT_EQ(tokenCounts.size(), order.size());
        std::size_t place = 0;
        for (const auto& [token, count] : tokenCounts) {
            ASSERT_EQ(token, order[place]) << "longest " << longest << ", place " << place;
            ASSERT_EQ(count, model[order[place]]) << "longest " << longest << ", place " << place;
            ++place;
        }
    }
}

TEST(TokenCountsTest, TokensOfOneHashStayApart) {
    // So many that some 18 pairs are bound to share their 32 bits, if the bytes have no pattern.
    std::mt19937 random(99);
    std::vector<std::string> tokens(400000, std::string(12, '\0'));
    TokenCounts tokenCounts;
    for (std::string& token : tokens) {
        for (char& byte : token) {
            byte = static_cast<char>(random());
        }
        tokenCounts.add(token);
    }
    ASSERT_EQ(tokenCounts.size(), tokens.size());
    std::size_t place = 0;
    for (const auto& [token, count] : tokenCounts) {
        ASSERT_EQ(token, tokens[place++]);
        ASSERT_EQ(count, 1u);
    }
}

}  // namespace halvern::classifier
