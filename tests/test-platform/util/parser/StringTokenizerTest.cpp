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
        {"a b", " ", {"a", "b"}}, {"  ab,, c \xE9", " ,", {"ab", "c", "\xE9"}},
        {"ab", "", {"ab"}},       {"", " ", {}},
        {" ,, ", " ,", {}},
    };
    for (const auto& row : cases) {
        StringTokenizerImpl tokenizer(row.text, row.delimiters);
        for (std::size_t taken = 0; taken < row.tokens.size(); ++taken) {
            EXPECT_TRUE(tokenizer.hasMoreTokens());
            EXPECT_EQ(tokenizer.countTokens(), row.tokens.size() - taken) << row.text;
            for (std::size_t ahead = 0; taken + ahead < row.tokens.size(); ++ahead) {
                EXPECT_EQ(tokenizer.peekToken(ahead), row.tokens[taken + ahead]);
            }
            std::string token = "before";
            tokenizer.nextToken(token);
            EXPECT_EQ(token, row.tokens[taken]);
        }
        EXPECT_FALSE(tokenizer.hasMoreTokens());
        EXPECT_EQ(tokenizer.countTokens(), 0u);
    }
    const auto peek = [](std::size_t ahead) {
        return support::failedCheck([ahead] { StringTokenizerImpl("one two", " ").peekToken(ahead); });
    };
    EXPECT_EQ(peek(2), "start != std::string::npos");
    EXPECT_EQ(peek(3), "countTokens() >= tokensAheadOfNextToken");
}
