#pragma once

#include "Context.h"

namespace CLI {
class App;
}

namespace halvern::morvane::client {

// request FILE: sends bytes as they are, prints the answer as it is.
void addRequestVerb(CLI::App& app, Context& context);

}  // namespace halvern::morvane::client
