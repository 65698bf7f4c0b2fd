#pragma once

#include "Context.h"

namespace CLI {
class App;
}

namespace halvern::morvane::client {

// file info, verify, dump, load, merge, subtract: work on the server's files without a server.
void addFileVerbs(CLI::App& app, Context& context);

}  // namespace halvern::morvane::client
