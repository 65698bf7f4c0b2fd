#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <ctime>
#include <string>

#include "exceptions/Exception.h"

namespace support {

// The message of the failure that the operation ends in; "no failure" if it ends well. A failure of
// another kind passes through and fails the test.
template <class Failure = exceptions::Exception, class Operation>
std::string failureOf(Operation&& operation) {
    try {
        operation();
    } catch (const Failure& e) {
        return e.what();
    }
    return "no failure";
}

// Asks in a process of its own, which may then be changed beyond repair.
template <class Condition>
bool holdsInAChild(Condition&& condition) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(condition() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0;
}

// Asks without the rights of the administrator, to whom no file is protected.
template <class Condition>
bool holdsForAPlainUser(Condition&& condition) {
    return holdsInAChild([&] { return (geteuid() != 0 || seteuid(65534) == 0) && condition(); });
}

// Whether text begins with a local time, as asctime writes it, of a moment from begin until now.
inline bool beginsWithATimeSince(std::time_t begin, const std::string& text) {
    const std::time_t end = std::time(nullptr);
    for (std::time_t time = begin; time <= end; ++time) {
        std::tm local{};
        char words[32];
        asctime_r(localtime_r(&time, &local), words);
        if (text.compare(0, 24, words, 24) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace support
