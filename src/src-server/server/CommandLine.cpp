#include "server/CommandLine.h"

#include <algorithm>
#include <string_view>

#include "server/Log.h"
#include "util/FixedStream.h"

namespace halvern::morvane {

namespace {

struct ModeRule {
    const char* flag;
    Mode mode;
    bool wantsConfiguration;
};

// In order of recognition.
constexpr ModeRule MODE_RULES[] = {
    {"-scm", Mode::SERVE_AS_SERVICE, true}, {"-install", Mode::INSTALL, true},
    {"-uninstall", Mode::UNINSTALL, false}, {"-start", Mode::START, false},
    {"-stop", Mode::STOP, false},           {"-test", Mode::TEST, true},
};

}  // namespace

Mode modeOf(int argc, const char* const* argv) {
    for (const ModeRule& rule : MODE_RULES) {
        if (std::any_of(argv, argv + argc,
                        [&](const char* word) { return std::string_view(word) == rule.flag; })) {
            return rule.mode;
        }
    }
    return Mode::SERVE;
}

void declareFlags(Mode mode, util::parser::ArgumentParser& parser) {
    parser.addFlag("-quiet", 0, 0, true);
    const ModeRule* rule = std::find_if(std::begin(MODE_RULES), std::end(MODE_RULES),
                                        [&](const ModeRule& r) { return r.mode == mode; });
    const bool serves = rule == std::end(MODE_RULES);
    if (!serves) {
        parser.addFlag(rule->flag, 0, 0, false);
    }
    if (serves || rule->wantsConfiguration) {
        parser.addFlag("-config", 1, 1, false);
    }
}

void printUsage(Log& log) {
    util::FixedStream<2048> usage;
    usage << "\nMorvane Server 2.40 - classifies text documents.\n\n"
             "Flags:\n"
             "-config\t\tSpecifies the server configuration file that is defined in XML. Can be used with "
             "-quiet and "
             "-test.\n"
             "-quiet\t\tDoesn't output messages to std out, only to the logfile.\n"
             "-install\tInstalls the server as a service. Must be used with -config.\n"
             "-uninstall\tUninstalls the service.\n"
             "-start\t\tStarts the service.\n"
             "-stop\t\tStops the service.\n\n"
             "Example - Runs it with the settings in 'config.xml':\n"
             "morvaneserver.exe -config config.xml\n\n";
    log.log(usage.str());
}

}  // namespace halvern::morvane
