#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/memory/MemoryStatus.h"
#include "server/Exchange.h"
#include "server/Interrupts.h"
#include "server/Settings.h"

namespace halvern::morvane::client {

// Exchanges over TCP, IPv4 or IPv6, each on a connection of its own. Names are asked for once, at the first
// exchange. Belongs to one thread.
class SocketExchange final : public Exchange {
public:
    explicit SocketExchange(Settings settings);

    // For an answer above largeAnswer bytes, memory says whether the machine has room for more of it. The
    // system promises more memory than there is: no allocation would fail before it kills some process.
    SocketExchange(Settings settings, std::unique_ptr<platform::memory::MemoryStatus> memory,
                   std::size_t largeAnswer);

    std::string ask(const std::string& request) override;

private:
    // An address that the resolver gave.
    struct Endpoint {
        sockaddr_storage address = {};
        socklen_t size = 0;
    };

    void resolve();
    void append(std::string& answer, const char* bytes, std::size_t size) const;
    int connectAny(const Interrupts& interrupts) const;
    int connectTo(const Endpoint& endpoint, const Interrupts& interrupts, int& error) const;
    std::string converse(int descriptor, const std::string& request, const Interrupts& interrupts) const;
    short wait(int descriptor, short events, const Interrupts& interrupts) const;

    const Settings _settings;
    const std::unique_ptr<platform::memory::MemoryStatus> _memory;
    const std::size_t _largeAnswer;
    std::vector<Endpoint> _endpoints;
};

}  // namespace halvern::morvane::client
