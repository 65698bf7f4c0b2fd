#pragma once

#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

#include "ExitCode.h"
#include "server/Exchange.h"
#include "server/Settings.h"
#include "terminal/Terminal.h"

namespace halvern::morvane::client {

// All that the program finds outside itself, so that a test can stand in for any of it. What is referred to
// must outlive the program.
struct World {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    Terminal outTerminal;  // where out ends
    Terminal errTerminal;
    Environment environment;
    std::function<std::unique_ptr<Exchange>(const Settings&)> connect;
    std::string programFolder;  // with a slash at the end; the schemas lie below it
};

// What verbs work with. The command line is read before any verb begins, and Context made before that.
class Context {
public:
    explicit Context(World world) : _world(std::move(world)) {}

    std::istream& in() { return _world.in; }
    std::ostream& out() { return _world.out; }
    std::ostream& err() { return _world.err; }
    const Terminal& terminal() const { return _world.outTerminal; }
    const Terminal& errTerminal() const { return _world.errTerminal; }
    const Environment& environment() const { return _world.environment; }
    const std::string& programFolder() const { return _world.programFolder; }

    GlobalOptions& options() { return _options; }
    bool json() const { return _options.json; }

    // From the command line, the environment and the configuration file, read at first use, so that a verb
    // that needs no server isn't kept by what is wrong with them. Throws Failure.
    const Settings& settings();

    // Whether a verb has asked for the settings, which only those do that talk to a server.
    bool wantsServer() const { return _settings.has_value(); }

    // The server of the settings, which nobody has talked to yet.
    Exchange& exchange();

    // A further one, for work in several threads.
    std::unique_ptr<Exchange> newExchange() { return _world.connect(settings()); }

    // What the program ends with if no Failure is thrown.
    ExitCode exitCode = ExitCode::DONE;

private:
    World _world;
    GlobalOptions _options;
    std::optional<Settings> _settings;
    std::unique_ptr<Exchange> _exchange;
};

}  // namespace halvern::morvane::client
