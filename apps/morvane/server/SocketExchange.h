#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <string>
#include <vector>

#include "server/Exchange.h"
#include "server/Interrupts.h"
#include "server/Settings.h"

namespace halvern::morvane::client {

// Exchanges over TCP, IPv4 or IPv6, each on a connection of its own. Names are asked for once, at the first
// exchange. Belongs to one thread.
class SocketExchange final : public Exchange {
public:
    explicit SocketExchange(Settings settings) : _settings(std::move(settings)) {}

    std::string ask(const std::string& request) override;

private:
    // An address that the resolver gave.
    struct Endpoint {
        sockaddr_storage address = {};
        socklen_t size = 0;
    };

    void resolve();
    int connectAny(const Interrupts& interrupts) const;
    int connectTo(const Endpoint& endpoint, const Interrupts& interrupts, int& error) const;
    std::string converse(int descriptor, const std::string& request, const Interrupts& interrupts) const;
    short wait(int descriptor, short events, const Interrupts& interrupts) const;

    const Settings _settings;
    std::vector<Endpoint> _endpoints;
};

}  // namespace halvern::morvane::client
