#include "util/parser/ArgumentParser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "exceptions/IllegalArgumentException.h"

using util::parser::ArgumentParser;

namespace {

template <class Operation>
std::string failureOf(const Operation& operation) {
    try {
        operation();
    } catch (const exceptions::IllegalArgumentException& failure) {
        return failure.what();
    }
    return "";
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
        {{"-install", "-config", "c.xml", "-quiet"}, ""},
        {{"-config", "c.xml", "-install"}, ""},
        {{}, "The non optional flag -config was not found."},
        {{"-quiet"}, "The non optional flag -config was not found."},
        {{"-config", "c.xml"}, "The non optional flag -install was not found."},
        {{"c.xml", "-config"}, "The argument line should start with a flag"},
        {{"-config", ""}, "The empty string is not a flag or an argument."},
        {{"-config", "-5"}, "The flag -5 is not allowed"},
        {{"-Config", "c.xml"}, "The flag -Config is not allowed"},
        {{"-config", "-install", "-start"}, "The flag -start is not allowed"},
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
        EXPECT_EQ(failureOf([&] { parse(parser, row.words); }), row.failure);
    }
}

TEST(ArgumentParserTest, AFlagIsThereOnlyIfTheLineHeldIt) {
    ArgumentParser parser;
    parser.addFlag("-none", 0, 0, true);
    parser.addFlag("-one", 1, 1, true);
    parser.addFlag("-two", 0, 2, true);
    parser.addFlag("-absent", 0, 1, true);
    parse(parser, {"-two", "a", "b", "-none", "-one", "x-y"});
    EXPECT_TRUE(parser.hasFlag("-none"));
    EXPECT_FALSE(parser.hasFlag("-absent"));
    EXPECT_FALSE(parser.hasFlag("-undeclared"));
    EXPECT_EQ(parser.getArgument("-one"), "x-y");
    EXPECT_EQ(failureOf([&] { parser.getArgument("-two"); }), "The flag: -two has multiple arguments.");
    EXPECT_EQ(failureOf([&] { parser.getArgument("-none"); }), "The flag: -none has multiple arguments.");
    EXPECT_EQ(failureOf([&] { parser.getArgument("-absent"); }), "The flag: -absent was not parsed");
}

TEST(ArgumentParserTest, ADeclarationMustMakeSense) {
    ArgumentParser parser;
    parser.addFlag("-a", 0, 1, true);
    EXPECT_EQ(failureOf([&] { parser.addFlag("-a", 0, 1, true); }),
              "The flag -a has been previosly specified");
    EXPECT_EQ(failureOf([&] { parser.addFlag("-b", 2, 1, true); }), "[max] must be bigger or equal to [min]");
}
