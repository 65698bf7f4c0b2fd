#include "util/parser/ArgumentParser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "exceptions/IllegalArgumentException.h"
#include "support/FailureOf.h"

using util::parser::ArgumentParser;

namespace {

template <class Operation>
std::string refusal(const Operation& operation) {
    return support::failureOf<exceptions::IllegalArgumentException>(operation);
}

void parse(ArgumentParser& parser, const std::vector<const char*>& words) {
    parser.parse(static_cast<std::uint32_t>(words.size()), words.data());
}

}  // namespace

TEST(ArgumentParserTest, ALineIsAcceptedOrRefusedWithItsReason) {
    const struct {
        std::vector<const char*> words;
        const char* failure;
    } cases[] = {
        {{"-config", "c.xml", "-install"}, "nothing was thrown"},
        {{}, "The non optional flag -config was not found."},
        {{"-config", "c.xml"}, "The non optional flag -install was not found."},
        {{"c.xml", "-config"}, "The argument line should start with a flag"},
        {{"-config", ""}, "The empty string is not a flag or an argument."},
        {{"-config", "-5"}, "The flag -5 is not allowed"},
        {{"-Config", "c.xml"}, "The flag -Config is not allowed"},
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
        EXPECT_EQ(refusal([&] { parse(parser, row.words); }), row.failure);
    }
}

TEST(ArgumentParserTest, AFlagIsThereOnlyIfTheLineHeldIt) {
    ArgumentParser parser;
    parser.addFlag("-none", 0, 0, true);
    parser.addFlag("-one", 1, 1, true);
    parser.addFlag("-two", 0, 2, true);
    parser.addFlag("-absent", 0, 1, true);
    EXPECT_EQ(refusal([&] { parser.addFlag("-one", 0, 1, true); }),
              "The flag -one has been previosly specified");
    EXPECT_EQ(refusal([&] { parser.addFlag("-b", 2, 1, true); }), "[max] must be bigger or equal to [min]");
    parse(parser, {"-two", "a", "b", "-none", "-one", "x-y"});
    EXPECT_TRUE(parser.hasFlag("-none"));
    EXPECT_FALSE(parser.hasFlag("-absent"));
    EXPECT_EQ(parser.getArgument("-one"), "x-y");
    EXPECT_EQ(refusal([&] { parser.getArgument("-two"); }), "The flag: -two has multiple arguments.");
    EXPECT_EQ(refusal([&] { parser.getArgument("-none"); }), "The flag: -none has multiple arguments.");
    EXPECT_EQ(refusal([&] { parser.getArgument("-absent"); }), "The flag: -absent was not parsed");
}
