#include "server/CommandLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "exceptions/IllegalArgumentException.h"

namespace halvern::morvane {
namespace {

TEST(CommandLineTest, TheFirstModeFlagDecidesAndOnlyItsFlagsAreAllowed) {
    struct Case {
        std::vector<const char*> words;
        Mode mode;
        std::string failure;
    };
    const Case cases[] = {
        {{"-quiet", "-config", "c.xml"}, Mode::SERVE, ""},
        {{"-quiet"}, Mode::SERVE, "The non optional flag -config was not found."},
        {{"-config"}, Mode::SERVE, "Not enough arguments for the flag -config. 1 is required."},
        {{"-config", "a", "b"},
         Mode::SERVE,
         "Too many arguments for the flag -config. No more than 1 arguments allowed"},
        {{"-config", "a", "-quiet", "b"}, Mode::SERVE, "No arguments for the flag -quiet are allowed"},
        {{"-install", "-config", "c.xml", "-quiet"}, Mode::INSTALL, ""},
        {{"-install"}, Mode::INSTALL, "The non optional flag -config was not found."},
        {{"-uninstall"}, Mode::UNINSTALL, ""},
        {{"-start", "-config", "c.xml"}, Mode::START, "The flag -config is not allowed"},
        {{"-stop", "now"}, Mode::STOP, "No arguments for the flag -stop are allowed"},
        {{"-test", "-config", "c.xml"}, Mode::TEST, ""},
        {{"-test", "-install", "-config", "c.xml"}, Mode::INSTALL, "The flag -test is not allowed"},
        {{"-stop", "-start"}, Mode::START, "The flag -stop is not allowed"},
        {{"-config", "c.xml", "-install", "-scm"},
         Mode::SERVE_AS_SERVICE,
         "The flag -install is not allowed"},
    };
    for (const Case& each : cases) {
        std::string line;
        for (const char* word : each.words) {
            line += std::string(word) + " ";
        }
        const auto count = static_cast<std::uint32_t>(each.words.size());
        EXPECT_EQ(modeOf(static_cast<int>(count), each.words.data()), each.mode) << line;
        util::parser::ArgumentParser parser;
        declareFlags(each.mode, parser);
        std::string failure;
        try {
            parser.parse(count, each.words.data());
        } catch (const exceptions::Exception& e) {
            failure = e.what();
        }
        EXPECT_EQ(failure, each.failure) << line;
    }
}

}  // namespace
}  // namespace halvern::morvane
