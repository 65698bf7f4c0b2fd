#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "support/TempDir.h"

namespace support {

// Runs the call in a process of its own, and tells the lines of the check that ended it: the condition, and
// after " / " the description if there is one. Empty if the call came back. What it leaves in its current
// directory is in the folder.
template <class Call>
std::string failedCheck(Call&& call, const TempDir& folder = TempDir()) {
    std::fflush(nullptr);  // or the child would write the same once more
    const pid_t child = fork();
    if (child == 0) {
        if (std::freopen("/dev/null", "w", stdout) != nullptr &&
            std::freopen("/dev/null", "w", stderr) != nullptr && chdir(folder.path().c_str()) == 0) {
            call();
        }
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFSIGNALED(status)) {
        return "";
    }
    const std::string report = readFile(folder.file("assertion.txt"));
    const auto lineBehind = [&report](const std::string& before, const std::string& label) {
        const std::size_t found = report.find(label);
        if (found == std::string::npos) {
            return std::string();
        }
        const std::size_t start = found + label.size();
        return before + report.substr(start, report.find('\n', start) - start);
    };
    return lineBehind("", "Assertion failed. Message: ") + lineBehind(" / ", "\nDescription: ");
}

}  // namespace support
