#include "util/parser/StringTokenizer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/FailedCheck.h"

using util::parser::StringTokenizerImpl;

TEST(StringTokenizerTest, TokensAreTheRunsBetweenDelimiters) {
    const struct {
        const char* text;
        const char* delimiters;
        std::vector<std::string> tokens;
    } cases[] = {
        {"a b", " ", {"a", "b"}}, {"  ab,, c ", " ,", {"ab", "c"}}, {"ab", "", {"ab"}}, {"", " ", {}},
        {" ,, ", " ,", {}},       {"\xE9|", "|", {"\xE9"}},
    };
    for (const auto& row : cases) {
        StringTokenizerImpl tokenizer(row.text, row.delimiters);
        EXPECT_EQ(tokenizer.countTokens(), row.tokens.size()) << row.text;
        EXPECT_EQ(tokenizer.hasMoreTokens(), !row.tokens.empty());
        for (std::size_t i = 0; i < row.tokens.size(); ++i) {
            EXPECT_EQ(tokenizer.peekToken(i), row.tokens[i]);
        }
        for (const std::string& token : row.tokens) {
            EXPECT_EQ(tokenizer.nextToken(), token);
        }
        EXPECT_FALSE(tokenizer.hasMoreTokens());
        EXPECT_EQ(tokenizer.countTokens(), 0u);
    }
}

TEST(StringTokenizerTest, PeekingCountsFromTheNextToken) {
    StringTokenizerImpl tokenizer("one two three", " ");
    std::string token = "before";
    tokenizer.nextToken(token);
    EXPECT_EQ(token, "one");
    EXPECT_EQ(tokenizer.countTokens(), 2u);
    EXPECT_EQ(tokenizer.peekToken(1), "three");
    EXPECT_EQ(tokenizer.peekToken(0), "two");
    EXPECT_EQ(tokenizer.nextToken(), "two");
}

TEST(StringTokenizerTest, PeekingBeyondTheLastTokenIsAFailedCheck) {
    const auto peek = [](std::size_t ahead) {
        return support::failedCheck([ahead] { StringTokenizerImpl("one two", " ").peekToken(ahead); });
    };
    EXPECT_EQ(peek(1), "");
    EXPECT_TRUE(peek(2).starts_with("start != std::string::npos / ")) << peek(2);
    EXPECT_TRUE(peek(3).starts_with("countTokens() >= tokensAheadOfNextToken / ")) << peek(3);
}
