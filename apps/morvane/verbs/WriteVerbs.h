#pragma once

#include "Context.h"

namespace CLI {
class App;
}

namespace halvern::morvane::client {

// create, remove, add-class, remove-class, train, untrain: each one request, which takes effect as a whole.
void addWriteVerbs(CLI::App& app, Context& context);

}  // namespace halvern::morvane::client
