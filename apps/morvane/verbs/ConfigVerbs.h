#pragma once

#include "Context.h"

namespace CLI {
class App;
}

namespace halvern::morvane::client {

// config check, config init: the configuration of a server, without one.
void addConfigVerbs(CLI::App& app, Context& context);

}  // namespace halvern::morvane::client
