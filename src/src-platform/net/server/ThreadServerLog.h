#pragma once

namespace net::server {

// Where a server tells of failures that it survives. Called from the server's own threads.
class ThreadServerLog {
public:
    virtual ~ThreadServerLog() = default;
    virtual void log(const char* text) noexcept = 0;
};

}  // namespace net::server
