#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "net/server/Connection.h"
#include "server/ConnectionParams.h"

namespace halvern::morvane {

// One client with one request.
//
// The request is everything up to the end of the client's sending, the answer everything up to the end of
// ours: no lengths, no terminators, no second request. Failures are answered where there is somebody left to
// answer.
class ClassifyConnection final : public net::server::Connection {
public:
    // The params must outlive the connection.
    ClassifyConnection(const platform::thread::ThreadFactory& threadFactory, std::uint32_t id,
                       const ConnectionParams* params);
    ~ClassifyConnection() override;

    // The body of the connection's thread.
    void run() override;

    // Takes effect before the next read. A client whose request is not whole by then gets no answer.
    void stop() override { _stop = true; }
    void giveWay(std::chrono::milliseconds silence) override;
    bool isAtWork() const override { return _isAtWork || _stop; }

private:
    enum class Received { WHOLE, TOO_LARGE, STOPPED };

    void _serve();
    Received _receive(std::string& request);
    void _refuseTooLarge();
    void _respond(std::int32_t statusCode, const char* message);
    void _linger();
    void _discard(const DrainBounds& bounds);

    std::atomic<bool> _stop = false;
    std::atomic<bool> _isAtWork = false;
    std::atomic<bool> _gaveWay = false;
    const ConnectionParams* const _params;
    const std::string _idString;
    const std::unique_ptr<ErrorResponse>
        _errorResponse;        // made early, so that a lack of memory can be answered
    bool _inputEnded = false;  // nothing more can come from the client
};

}  // namespace halvern::morvane
