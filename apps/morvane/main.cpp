#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "Program.h"
#include "server/SocketExchange.h"
#include "util/StringHelper.h"
#include "windows/file/Module.h"

int main(int argc, char* argv[]) {
    using namespace halvern::morvane::client;
    std::ios::sync_with_stdio(false);
    const Environment environment = [](const std::string& name) -> std::optional<std::string> {
        const char* value = std::getenv(name.c_str());
        return value == nullptr ? std::nullopt : std::optional<std::string>(value);
    };
    const auto connect = [](const Settings& settings) -> std::unique_ptr<Exchange> {
        return std::make_unique<SocketExchange>(settings);
    };
    Program program({std::cin, std::cout, std::cerr, Terminal::of(STDOUT_FILENO, environment),
                     Terminal::of(STDERR_FILENO, environment), environment, connect,
                     util::StringHelper::directoryOf(windows::file::ModuleImpl().fileName())});
    return program.run({argv + (argc > 0 ? 1 : 0), argv + argc});
}
