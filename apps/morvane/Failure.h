#pragma once

#include <cstdint>
#include <string>

#include "ExitCode.h"

namespace halvern::morvane::client {

// The end of a verb that couldn't do its work. Thrown by value, shown once, by Program: the message behind
// "morvane: ", the hint on lines of its own below.
struct Failure {
    ExitCode code;
    std::string message;      // what went wrong, for a person; may have several lines
    std::string hint = {};    // what to do; may be empty
    std::int32_t status = 0;  // the server's status code, if it was the server who refused
    std::string call = {};    // the call that the server refused, as "train spam with a.txt"; may be empty
};

}  // namespace halvern::morvane::client
