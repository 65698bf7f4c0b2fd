#include "server/Settings.h"

#include <charconv>
#include <cmath>
#include <fstream>

#include "Failure.h"
#include "Text.h"

namespace halvern::morvane::client {

namespace {

constexpr double LONGEST_TIMEOUT_SECONDS = 1e6;

std::uint16_t parsePort(const std::string& text, const std::string& address, const std::string& source) {
    std::uint16_t port = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, port);
    if (result.ec != std::errc() || result.ptr != end || port == 0) {
        throw Failure{ExitCode::USAGE,
                      "'" + address + "' (" + source + ") is no address: '" + text + "' is no port.",
                      "A port is a number from 1 to 65535, as in 127.0.0.1:9400."};
    }
    return port;
}

std::chrono::milliseconds checkedTimeout(double seconds, const std::string& source) {
    if (!(seconds >= 0 && seconds <= LONGEST_TIMEOUT_SECONDS)) {
        throw Failure{ExitCode::USAGE, "The timeout (" + source + ") must be 0 to 1000000 seconds.",
                      "0 means: wait for ever."};
    }
    // A time so short that it rounds to nothing must not turn into "for ever".
    return std::chrono::milliseconds(static_cast<std::int64_t>(std::ceil(seconds * 1000)));
}

void readLine(const std::string& line, const std::string& where, Settings& settings) {
    const std::size_t equals = line.find('=');
    const std::string key = trimmed(line.substr(0, equals));
    const std::string value = equals == std::string::npos ? "" : trimmed(line.substr(equals + 1));
    if (value.empty()) {
        throw Failure{ExitCode::USAGE, where + ": '" + line + "' isn't understood.",
                      "A line says KEY = VALUE, as in: server = 127.0.0.1:9400"};
    }
    if (key == "server") {
        settings.address = parseAddress(value, where);
    } else if (key == "timeout") {
        double seconds = 0;
        const char* end = value.data() + value.size();
        const auto result = std::from_chars(value.data(), end, seconds);
        if (result.ec != std::errc() || result.ptr != end) {
            throw Failure{ExitCode::USAGE, where + ": '" + value + "' is no number of seconds."};
        }
        settings.timeout = checkedTimeout(seconds, where);
    } else {
        throw Failure{ExitCode::USAGE, where + ": there is no setting '" + key + "'.",
                      "The settings are server and timeout."};
    }
}

void readFile(const std::string& path, Settings& settings) {
    std::ifstream file(path);
    if (!file) {
        return;  // having none is the usual case
    }
    constexpr std::string_view BYTE_ORDER_MARK = "\xef\xbb\xbf";
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        if (number == 1 && line.starts_with(BYTE_ORDER_MARK)) {
            line.erase(0, BYTE_ORDER_MARK.size());
        }
        line = trimmed(line.substr(0, line.find('#')));
        if (!line.empty()) {
            readLine(line, path + ":" + std::to_string(number), settings);
        }
    }
    if (file.bad()) {
        throw Failure{ExitCode::LOCAL_FILE, "The settings in " + path + " can't be read."};
    }
}

}  // namespace

std::string Address::text() const {
    const bool isV6 = host.find(':') != std::string::npos;
    return (isV6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

Address parseAddress(const std::string& text, const std::string& source) {
    Address address;
    std::string rest;  // what stands behind the host
    if (text.starts_with('[')) {
        const std::size_t end = text.find(']');
        address.host = end == std::string::npos ? "" : text.substr(1, end - 1);
        rest = end == std::string::npos ? "" : text.substr(end + 1);
    } else if (text.find(':') != text.rfind(':')) {
        address.host = text;
    } else {
        address.host = text.substr(0, text.find(':'));
        rest = text.substr(address.host.size());
    }
    if (address.host.empty() || (!rest.empty() && rest.front() != ':')) {
        throw Failure{ExitCode::USAGE, "'" + text + "' (" + source + ") is no address.",
                      "Write HOST, HOST:PORT or [IPv6]:PORT, as in 127.0.0.1:9400."};
    }
    if (!rest.empty()) {
        address.port = parsePort(rest.substr(1), text, source);
    }
    return address;
}

std::string configurationFile(const Environment& environment) {
    const std::optional<std::string> folder = environment("XDG_CONFIG_HOME");
    if (folder && folder->starts_with('/')) {  // the XDG Base Directory Specification: ignore a relative one
        return *folder + "/morvane/config";
    }
    const std::optional<std::string> home = environment("HOME");
    return home && !home->empty() ? *home + "/.config/morvane/config" : "";
}

Settings readSettings(const GlobalOptions& options, const Environment& environment) {
    Settings settings;
    if (const std::string path = configurationFile(environment); !path.empty()) {
        readFile(path, settings);
    }
    const std::optional<std::string> variable = environment("MORVANE_SERVER");
    if (!options.server.empty()) {
        settings.address = parseAddress(options.server, "--server");
    } else if (variable && !variable->empty()) {
        settings.address = parseAddress(*variable, "MORVANE_SERVER");
    }
    if (options.timeoutSeconds) {
        settings.timeout = checkedTimeout(*options.timeoutSeconds, "--timeout");
    }
    return settings;
}

}  // namespace halvern::morvane::client
