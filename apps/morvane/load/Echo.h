#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace halvern::morvane::client {

// A bare echo in this process, on a free port of the loopback: takes a connection, gives it a thread, returns
// SIZE bytes and closes. What the machine itself allows, to set beside the figures of the server.
class Echo {
public:
    static constexpr std::size_t SIZE = 512;

    // Listens when it returns. Throws net::socket::SocketException.
    Echo();
    Echo(const Echo&) = delete;
    Echo& operator=(const Echo&) = delete;
    ~Echo();  // when no client is connected any more

    std::uint16_t port() const;

private:
    class Listener;
    const std::unique_ptr<Listener> _listener;
};

}  // namespace halvern::morvane::client
