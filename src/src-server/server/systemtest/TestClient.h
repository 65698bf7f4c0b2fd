#pragma once

#include <cstdint>
#include <string>

#include "platform/thread/InheritableThreadImpl.h"

namespace halvern::morvane {

// A client that is a thread of its own: connects, sends its request, and reads up to the server's end.
//
// Any failure on the way is a failed check, which ends the process.
class TestClient : public platform::thread::InheritableThreadImpl {
public:
    TestClient(const platform::thread::ThreadFactory& threadFactory, const std::string& host,
               std::uint16_t port, const std::string& request);

    // One exchange over one connection.
    void run() override;

protected:
    std::string _request;
    std::string _response;

private:
    const std::string _host;
    const std::uint16_t _port;
    const bool _assertOnIOException = true;
};

}  // namespace halvern::morvane
