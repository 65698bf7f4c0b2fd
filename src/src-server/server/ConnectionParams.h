#pragma once

#include <chrono>
#include <cstdint>

#include "exceptions/TerminateHandler.h"
#include "server/ErrorResponse.h"
#include "server/Log.h"
#include "server/StringClassifier.h"

namespace halvern::morvane {

// How long a connection goes on reading what it will not use. A socket that is closed with input still coming
// in resets its peer, which may then lose an answer that it has not read yet; but nobody may hold a place
// that way for ever. The first of the three limits that is reached ends it.
struct DrainBounds {
    std::chrono::milliseconds silence;  // without a byte from the client
    std::chrono::milliseconds time;     // altogether
    std::uint64_t bytes;
};

// For the rest of a request that is too large, which is read before it is answered. Long enough for an honest
// client on a slow line to send all of its request.
inline constexpr DrainBounds DISCARD_BOUNDS{std::chrono::seconds(60), std::chrono::minutes(5), 1u << 30};

// After an answer that was given before the request had ended. The client has it in hand and should stop
// sending.
inline constexpr DrainBounds LINGER_BOUNDS{std::chrono::seconds(5), std::chrono::minutes(1), 1u << 30};

// What every connection needs. Filled once, before the first connection, and never changed: all connections
// read it without a lock.
struct ConnectionParams {
    std::uint64_t maxInput;  // largest request in bytes
    Log& log;
    const StringClassifierFactory& classifierFactory;
    const ErrorResponseFactory& errorResponseFactory;
    exceptions::TerminateHandler& terminateHandler;
    DrainBounds discardBounds = DISCARD_BOUNDS;
    DrainBounds lingerBounds = LINGER_BOUNDS;
};

}  // namespace halvern::morvane
