#pragma once

#include "Context.h"

namespace CLI {
class App;
}

namespace halvern::morvane::client {

// import: learns labelled texts from a file or folder, and can be interrupted at any time.
void addImportVerb(CLI::App& app, Context& context);

}  // namespace halvern::morvane::client
