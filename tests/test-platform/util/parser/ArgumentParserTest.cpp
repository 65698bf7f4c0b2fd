#include "util/parser/ArgumentParser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "exceptions/IllegalArgumentException.h"
#include "support/Failure.h"

using util::parser::ArgumentParser;

TEST(ArgumentParserTest, ALineIsAcceptedOrRefusedWithItsReason) {
    const struct {
        std::vector<const char*> words;
        const char* failure;
    } cases[] = {
        {{"-config", "c.xml", "-install"}, "no failure"},
        {{}, "The non optional flag -config was not found."},
        {{"c.xml", "-config"}, "The argument line should start with a flag"},
        {{"-config", ""}, "The empty string is not a flag or an argument."},
        {{"-config", "-5"}, "The flag -5 is not allowed"},
        {{"-install", "-install"}, "The flag -install was used more than once."},
        {{"-config", "-install"}, "Not enough arguments for the flag -config. 1 is required."},
        {{"-config", "a", "b", "-install"},
         "Too many arguments for the flag -config. No more than 1 arguments allowed"},
        {{"-config", "a", "-install", "b"}, "No arguments for the flag -install are allowed"},
    };
    for (const auto& row : cases) {
        ArgumentParser parser;
        parser.addFlag("-quiet", 0, 0, true);
        parser.addFlag("-install", 0, 0, false);
        parser.addFlag("-config", 1, 1, false);
        EXPECT_EQ(support::failureOf<exceptions::IllegalArgumentException>(
                      [&] { parser.parse(static_cast<std::uint32_t>(row.words.size()), row.words.data()); }),
                  row.failure);
        if (&row == cases) {
            EXPECT_TRUE(parser.hasFlag("-install") && !parser.hasFlag("-quiet"));
            EXPECT_EQ(parser.getArgument("-config"), "c.xml");
        }
    }
}
