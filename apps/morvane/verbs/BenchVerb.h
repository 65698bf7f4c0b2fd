#pragma once

#include "Context.h"

namespace CLI {
class App;
}

namespace halvern::morvane::client {

// bench: sends requests for a while, and tells how many are answered and how long that takes.
void addBenchVerb(CLI::App& app, Context& context);

}  // namespace halvern::morvane::client
