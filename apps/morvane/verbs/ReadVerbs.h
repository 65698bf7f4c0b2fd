#pragma once

#include "Context.h"

namespace CLI {
class App;
}

namespace halvern::morvane::client {

// classify, keywords, info: each one request, which changes nothing.
void addReadVerbs(CLI::App& app, Context& context);

}  // namespace halvern::morvane::client
