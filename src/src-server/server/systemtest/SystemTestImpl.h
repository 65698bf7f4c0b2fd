#pragma once

#include <cstdint>

#include "server/Log.h"

namespace halvern::morvane {

// The server's test of itself: clients in this process talk to its own port, as clients on the network do.
class SystemTest {
public:
    // How many clients it connects at one time.
    static constexpr std::uint32_t CLIENTS_AT_ONCE = 15;

    virtual ~SystemTest() = default;

    // Tests the server that listens on this port of this machine, and returns the number of steps, all of
    // which have passed: what fails is a failed check, which ends the process with a report.
    virtual std::uint32_t run(std::uint16_t port) = 0;
};

class SystemTestImpl final : public SystemTest {
public:
    explicit SystemTestImpl(Log& log) : _log(log) {}

    std::uint32_t run(std::uint16_t port) override;

private:
    Log& _log;
};

}  // namespace halvern::morvane
