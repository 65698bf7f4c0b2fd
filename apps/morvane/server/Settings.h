#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace halvern::morvane::client {

// The value of an environment variable, if it is set.
using Environment = std::function<std::optional<std::string>(const std::string& name)>;

// Where a server listens.
struct Address {
    std::string host = "127.0.0.1";  // a name or an IPv4 or IPv6 address, without brackets
    std::uint16_t port = 9400;

    // As parseAddress reads it.
    std::string text() const;
};

// Reads "host", "host:port", "[IPv6]:port" or a bare IPv6 address; without a port it is 9400. Throws Failure
// with USAGE; source says in its message where the text stood.
Address parseAddress(const std::string& text, const std::string& source);

// How to talk to the server.
struct Settings {
    Address address;
    // The longest time without a byte before the server is given up; zero: for ever.
    std::chrono::milliseconds timeout = std::chrono::seconds(300);
};

// What the command line says; what it leaves out is looked up elsewhere.
struct GlobalOptions {
    std::string server = {};
    std::optional<double> timeoutSeconds = {};
    bool json = false;
};

// $XDG_CONFIG_HOME/morvane/config, or ~/.config/morvane/config; empty if neither variable is of use.
std::string configurationFile(const Environment& environment);

// The command line goes first, then MORVANE_SERVER, then the configuration file, then what Settings begins
// with. The file has lines "server = HOST:PORT" and "timeout = SECONDS", and comments behind '#'. Throws
// Failure: USAGE for what makes no sense, wherever it stands, LOCAL_FILE for a file that can't be read.
Settings readSettings(const GlobalOptions& options, const Environment& environment);

}  // namespace halvern::morvane::client
