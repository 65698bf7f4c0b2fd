#include "verbs/Verb.h"

#include <CLI/CLI.hpp>

namespace halvern::morvane::client {

CLI::App& addVerb(CLI::App& app, const std::string& name, const std::string& description,
                  const std::string& example) {
    CLI::App& verb = *app.add_subcommand(name, description);
    std::string indented = "  ";
    for (const char c : example) {
        indented += c;
        indented += c == '\n' ? "  " : "";
    }
    verb.footer("Example:\n" + indented +
                "\n\n--server, --timeout and --json may stand here too; 'morvane --help' tells about them.");
    return verb;
}

}  // namespace halvern::morvane::client
