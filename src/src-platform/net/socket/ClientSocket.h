#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "net/socket/SocketStream.h"

namespace net::socket {

// The calling side of one connection.
class ClientSocket {
public:
    virtual ~ClientSocket() = default;

    // Connects, and gives the stream, which lives as long as this object. Only once, successful or not. A
    // port that nobody listens on refuses, also where the system would connect the caller to itself. Throws
    // InitException, ConnectException, ChangeStateException.
    virtual SocketStream& connect(const std::string& host, std::uint16_t port) = 0;
};

class ClientSocketFactory {
public:
    virtual ~ClientSocketFactory() = default;
    virtual std::unique_ptr<ClientSocket> create() const = 0;
};

}  // namespace net::socket
