#pragma once

#include "Context.h"

namespace CLI {
class App;
}

namespace halvern::morvane::client {

// evaluate: tells how well a classifier does on labelled texts, in the terminal, in JSON or as a page.
void addEvaluateVerb(CLI::App& app, Context& context);

}  // namespace halvern::morvane::client
