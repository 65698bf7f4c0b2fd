#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <sstream>
#include <string>

#include "system/Program.h"

namespace stress {

// What a running program asks of the system, written down by strace, which must be there and be allowed to
// trace.
class Trace {
public:
    // The calls are named as strace wants them: "%file,connect".
    Trace(pid_t traced, const std::string& calls, const std::string& folder)
        : _file(folder + "/trace.txt"),
          _process(
              STRACE,
              {"-f", "-y", "-s", "4096", "-e", "trace=" + calls, "-o", _file, "-p", std::to_string(traced)},
              folder + "/strace.txt", [] {}),
          _messages(folder + "/strace.txt") {
        _works = systemtest::eventually([this] {
                     return _process.hasEnded() ||
                            support::readFile(_messages).find("attached") != std::string::npos;
                 }) &&
                 !_process.hasEnded();
    }

    // False where the system has no strace or doesn't let it trace.
    bool works() const { return _works; }
    std::string problem() const { return support::readFile(_messages); }

    // Lets go of the program, and gives all lines.
    std::string end() {
        _process.signal(SIGINT);
        _process.wait();
        return support::readFile(_file);
    }

private:
    static constexpr const char* STRACE = "/usr/bin/strace";

    const std::string _file;
    systemtest::Process _process;
    const std::string _messages;
    bool _works = false;
};

// The first string in quotes of a line, in the escapes of strace; empty if there is none.
inline std::string quoted(const std::string& line) {
    const std::size_t begin = line.find('"');
    std::size_t end = begin == std::string::npos ? begin : begin + 1;
    while (end < line.size() && line[end] != '"') {
        end += line[end] == '\\' ? 2 : 1;
    }
    return begin == std::string::npos ? "" : line.substr(begin + 1, end - begin - 1);
}

// Whether a serving server may name this path, wherever a request would lead it: files directly in the root,
// its own logs, and what the kernel tells the program and its C library about memory and processors.
inline bool isAllowed(const std::string& path) {
    static const std::string ROOT = "./classifiers//";
    static const std::set<std::string> EXACT = {"",
                                                ".",
                                                "./classifiers/",
                                                ROOT,
                                                "./logs/",
                                                "./logs/requests",
                                                "/dev/null",
                                                "/proc/meminfo",
                                                "/proc/self/cgroup",
                                                "/proc/self/maps",
                                                "/proc/stat",
                                                "/proc/sys/vm/overcommit_memory",
                                                "/sys/devices/system/cpu/online"};
    const std::string last = path.substr(path.rfind('/') + 1);
    if (EXACT.count(path) != 0 || path.find("/../") != std::string::npos || last == "..") {
        return EXACT.count(path) != 0;
    }
    // Names relative to the open root or log directory among them: hidden neighbours and the files
    // themselves.
    const bool plain =
        path == last && (path.ends_with(".dat") || path.ends_with(".xml") || path.ends_with(".tmp"));
    return plain || path == ROOT + last || path.starts_with("./logs/") || path.starts_with("/sys/fs/cgroup/");
}

// CTest's way to say that a test couldn't be run.
constexpr int SKIPPED = 77;

}  // namespace stress
