#pragma once

#include <string>

namespace halvern::morvane::client {

// The way to a server: one request there, one answer back.
class Exchange {
public:
    virtual ~Exchange() = default;

    // Sends the bytes as they are and returns the answer as it is; it has at least one byte. Throws Failure
    // with UNREACHABLE if there is no answer to be had, and with INTERRUPTED after Ctrl-C. The request may
    // have run nevertheless.
    virtual std::string ask(const std::string& request) = 0;
};

}  // namespace halvern::morvane::client
