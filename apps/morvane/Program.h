#pragma once

#include <string>
#include <vector>

#include "Context.h"

namespace CLI {
class App;
}

namespace halvern::morvane::client {

// Declares the whole command line: options for all verbs, and each verb with its own.
void declareCommandLine(CLI::App& app, Context& context);

// The program behind main: reads the command line, runs the verb, shows the failure if there is one.
class Program {
public:
    explicit Program(World world) : _context(std::move(world)) {}

    // arguments stand as in argv, without the program's own name. Throws nothing that it knows of. Only once.
    int run(const std::vector<std::string>& arguments);

private:
    Context _context;
};

}  // namespace halvern::morvane::client
