#pragma once

#include <cstdint>
#include <memory>

#include "net/socket/SocketStream.h"

namespace net::socket {

// A port that listens. accept, waitForClient and waitingClients belong to one thread; shutdown may be called
// from another one.
class ServerSocket {
public:
    virtual ~ServerSocket() = default;

    // Waits for a client and gives its connection. Throws AcceptException, also for lack of descriptors or
    // memory, in which case the client stays in the queue, and after shutdown.
    virtual std::unique_ptr<SocketStream> accept() = 0;

    // Waits until accept would not block: for a client, or the end of listening.
    virtual void waitForClient() = 0;

    // How many clients wait to be accepted. Throws GeneralException.
    virtual std::uint32_t waitingClients() const = 0;

    // Stops listening: a blocked accept fails, later ones fail, clients in the queue are reset. Closing alone
    // does not wake an accept, and frees a number that it may still use. Throws CloseException.
    virtual void shutdown() = 0;

    // Only when no other thread is in accept. A second call does nothing. Throws CloseException.
    virtual void close() = 0;

    // The port that this socket is bound to; never 0.
    virtual std::uint16_t port() const = 0;
};

class ServerSocketFactory {
public:
    virtual ~ServerSocketFactory() = default;

    // Listens on the port on all interfaces when it returns, with up to queue clients waiting for accept.
    // Port 0 lets the system choose a free one. Throws InitException, ChangeStateException, and
    // PreconditionException for a queue above 2147483647.
    virtual std::unique_ptr<ServerSocket> create(std::uint16_t port, std::uint32_t queue) const = 0;
};

}  // namespace net::socket
