#include "completion/KnownClassifiers.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "exceptions/Exception.h"
#include "io/filesystem/SaveFile.h"

namespace halvern::morvane::client {
namespace {

// More than a person has; a script that makes classifiers without end shall not make this file so.
constexpr std::size_t MAX_LINES = 1000;

std::string fileIn(const std::string& folder) { return folder + "/classifiers"; }

std::vector<std::string> linesOf(const std::string& folder) {
    std::vector<std::string> lines;
    if (folder.empty()) {
        return lines;
    }
    std::ifstream in(fileIn(folder), std::ios::binary);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

void write(const std::string& folder, const std::vector<std::string>& lines) {
    util::Bytes data;
    for (const std::string& line : lines) {
        data.insert(data.end(), line.begin(), line.end());
        data.push_back('\n');
    }
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    try {
        // As a whole, since several programs may do so at the same time.
        io::filesystem::SaveFileImpl().save(fileIn(folder), data);
    } catch (const exceptions::Exception&) {
    }
}

}  // namespace

KnownClassifiers::KnownClassifiers(const Environment& environment) {
    const std::string state = environment("XDG_STATE_HOME").value_or("");
    const std::string home = environment("HOME").value_or("");
    // The base directory specification of freedesktop.org has relative paths ignored.
    if (!state.empty() && state.front() == '/') {
        _folder = state + "/morvane";
    } else if (!home.empty() && home.front() == '/') {
        _folder = home + "/.local/state/morvane";
    }
}

std::vector<std::string> KnownClassifiers::of(const std::string& server) const {
    std::vector<std::string> names;
    for (const std::string& line : linesOf(_folder)) {
        if (line.compare(0, server.size() + 1, server + "\t") == 0) {
            names.push_back(line.substr(server.size() + 1));
        }
    }
    return names;
}

void KnownClassifiers::remember(const std::string& server, const std::string& classifier) const {
    const std::string line = server + "\t" + classifier;
    std::vector<std::string> lines = linesOf(_folder);
    if (_folder.empty() || std::find(lines.begin(), lines.end(), line) != lines.end()) {
        return;
    }
    lines.push_back(line);
    if (lines.size() > MAX_LINES) {
        lines.erase(lines.begin(), lines.end() - MAX_LINES);
    }
    write(_folder, lines);
}

void KnownClassifiers::forget(const std::string& server, const std::string& classifier) const {
    std::vector<std::string> lines = linesOf(_folder);
    const auto rest = std::remove(lines.begin(), lines.end(), server + "\t" + classifier);
    if (rest != lines.end()) {
        lines.erase(rest, lines.end());
        write(_folder, lines);
    }
}

}  // namespace halvern::morvane::client
