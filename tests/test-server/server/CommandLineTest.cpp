#include "server/CommandLine.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "support/Failure.h"

namespace halvern::morvane {
namespace {

TEST(CommandLineTest, TheFirstModeFlagDecidesAndOnlyItsFlagsAreAllowed) {
    const struct {
        const char* line;
        Mode mode;
        const char* failure;
    } rows[] = {
        {"-quiet -config c.xml", Mode::SERVE, "no failure"},
        {"-quiet", Mode::SERVE, "The non optional flag -config was not found."},
        {"-config", Mode::SERVE, "Not enough arguments for the flag -config. 1 is required."},
        {"-config a b", Mode::SERVE,
         "Too many arguments for the flag -config. No more than 1 arguments allowed"},
        {"c.xml -config", Mode::SERVE, "The argument line should start with a flag"},
        {"-quiet -quiet -config c.xml", Mode::SERVE, "The flag -quiet was used more than once."},
        {"-install -config c.xml -quiet", Mode::INSTALL, "no failure"},
        {"-uninstall", Mode::UNINSTALL, "no failure"},
        {"-start -config c.xml", Mode::START, "The flag -config is not allowed"},
        {"-stop now", Mode::STOP, "No arguments for the flag -stop are allowed"},
        {"-test -config c.xml", Mode::TEST, "no failure"},
        {"-test -install -config c.xml", Mode::INSTALL, "The flag -test is not allowed"},
        {"-stop -start", Mode::START, "The flag -stop is not allowed"},
        {"-config c.xml -install -scm", Mode::SERVE_AS_SERVICE, "The flag -install is not allowed"},
    };
    for (const auto& row : rows) {
        std::istringstream in(row.line);
        const std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
        std::vector<const char*> argv;
        for (const std::string& word : words) {
            argv.push_back(word.c_str());
        }
        const auto count = static_cast<std::uint32_t>(argv.size());
        EXPECT_EQ(modeOf(static_cast<int>(count), argv.data()), row.mode) << row.line;
        util::parser::ArgumentParser parser;
        declareFlags(row.mode, parser);
        EXPECT_EQ(support::failureOf([&] { parser.parse(count, argv.data()); }), row.failure) << row.line;
    }
}

}  // namespace
}  // namespace halvern::morvane
