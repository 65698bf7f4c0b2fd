#pragma once

#include <csignal>

namespace net::socket {

// Makes the process fit for sockets as long as it lives. Has no operations: being there is all it does.
class SocketInitializer {
public:
    virtual ~SocketInitializer() = default;
};

// Ignores SIGPIPE, and puts back what was there before at the end. The streams themselves never raise it; but
// the log may go to a pipe whose reader has gone, and that must not end a server with clients.
// Throws InitException.
class SocketInitializerImpl final : public SocketInitializer {
public:
    SocketInitializerImpl();
    SocketInitializerImpl(const SocketInitializerImpl&) = delete;
    SocketInitializerImpl& operator=(const SocketInitializerImpl&) = delete;
    ~SocketInitializerImpl() override;

private:
    struct sigaction _before = {};
};

}  // namespace net::socket
