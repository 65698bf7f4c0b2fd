#include "server/CommandLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/RecordingLog.h"

namespace {

using halvern::morvane::declareFlags;
using halvern::morvane::Mode;
using halvern::morvane::modeOf;

struct Case {
    std::vector<const char*> words;
    Mode mode;
    const char* failure;  // null where the line is accepted
};

TEST(CommandLineTest, TheFirstModeFlagDecidesAndOnlyItsFlagsAreAllowed) {
    const Case cases[] = {
        {{"-config", "c.xml"}, Mode::SERVE, nullptr},
        {{"-quiet", "-config", "c.xml"}, Mode::SERVE, nullptr},
        {{"-quiet"}, Mode::SERVE, "The non optional flag -config was not found."},
        {{"-config"}, Mode::SERVE, "Not enough arguments for the flag -config. 1 is required."},
        {{"-config", "a", "b"},
         Mode::SERVE,
         "Too many arguments for the flag -config. No more than 1 arguments allowed"},
        {{"-config", "a", "-quiet", "b"}, Mode::SERVE, "No arguments for the flag -quiet are allowed"},
        {{"c.xml"}, Mode::SERVE, "The argument line should start with a flag"},
        {{""}, Mode::SERVE, "The empty string is not a flag or an argument."},
        {{"-config", "a", "-config", "b"}, Mode::SERVE, "The flag -config was used more than once."},
        {{"-config", "-5"}, Mode::SERVE, "The flag -5 is not allowed"},
        {{"-install", "-config", "c.xml", "-quiet"}, Mode::INSTALL, nullptr},
        {{"-install"}, Mode::INSTALL, "The non optional flag -config was not found."},
        {{"-uninstall"}, Mode::UNINSTALL, nullptr},
        {{"-start", "-config", "c.xml"}, Mode::START, "The flag -config is not allowed"},
        {{"-stop", "now"}, Mode::STOP, "No arguments for the flag -stop are allowed"},
        {{"-test", "-config", "c.xml"}, Mode::TEST, nullptr},
        {{"-test", "-install", "-config", "c.xml"}, Mode::INSTALL, "The flag -test is not allowed"},
        {{"-config", "c.xml", "-install", "-scm"},
         Mode::SERVE_AS_SERVICE,
         "The flag -install is not allowed"},
    };
    for (const Case& c : cases) {
        std::vector<const char*> argv = {"morvaneserver"};
        argv.insert(argv.end(), c.words.begin(), c.words.end());
        std::string line;
        for (const char* word : c.words) {
            line += std::string(word) + " ";
        }
        SCOPED_TRACE(line);
        EXPECT_EQ(modeOf(static_cast<int>(argv.size()), argv.data()), c.mode);
        util::parser::ArgumentParser parser;
        declareFlags(c.mode, parser);
        std::string failure;
        try {
            parser.parse(static_cast<std::uint32_t>(c.words.size()), argv.data() + 1);
        } catch (const exceptions::Exception& e) {
            failure = e.what();
        }
        EXPECT_EQ(failure, c.failure != nullptr ? c.failure : "");
    }
}

}  // namespace
