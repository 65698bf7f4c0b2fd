#include "classifier/TokenCounts.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace halvern::classifier {

// Most tokens are random bytes, so many that some fifteen pairs are bound to share the 32 bits of their hash.
// The others are NULs behind which one byte stands, so that the fill of a token must not hide its length.
TEST(TokenCountsTest, CountsInTheOrderOfFirstOccurrence) {
    std::mt19937 random(7);
    TokenCounts tokenCounts;
    std::unordered_map<std::string, std::uint32_t> model;
    std::vector<std::string> order;
    for (int i = 0; i < 400000; ++i) {
        const std::uint32_t words[] = {static_cast<std::uint32_t>(random()),
                                       static_cast<std::uint32_t>(random()),
                                       static_cast<std::uint32_t>(random())};
        std::string token(reinterpret_cast<const char*>(words), sizeof(words));
        if (i % 10 == 0) {
            token = std::string(random() % Token::MAX_LENGTH, '\0') + static_cast<char>(random() % 3);
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
