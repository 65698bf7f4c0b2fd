#include "util/parser/StringTokenizer.h"

#include <gtest/gtest.h>

#include <string>

TEST(StringTokenizerTest, TokensAreTheRunsBetweenDelimiters) {
    const char* const cases[][3] = {{"  ab,, c \xE9", " ,", "[ab, \xE9][c, \xE9][\xE9, \xE9]"},
                                    {"a b", "", "[a b, a b]"},
                                    {" ,, ", " ,", ""}};
    for (const auto& [text, delimiters, expected] : cases) {
        util::parser::StringTokenizerImpl tokenizer(text, delimiters);
        std::string found;
        while (tokenizer.hasMoreTokens()) {
            const std::string last = tokenizer.peekToken(tokenizer.countTokens() - 1);
            found += "[" + tokenizer.nextToken() + ", " + last + "]";
        }
        EXPECT_EQ(found, expected);
    }
}
