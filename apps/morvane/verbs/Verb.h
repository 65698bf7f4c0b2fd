#pragma once

#include <string>

namespace CLI {
class App;
}

namespace halvern::morvane::client {

// A verb of app, with a description and an example in its help. The example stands as people would type it,
// in one or more lines.
CLI::App& addVerb(CLI::App& app, const std::string& name, const std::string& description,
                  const std::string& example);

}  // namespace halvern::morvane::client
