#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Failure.h"
#include "server/Exchange.h"

namespace halvern::morvane::client {

struct LoadRequest {
    std::string bytes;
    std::string call = {};  // what it asks for, as RequestWriter describes it; may be empty
};

// What to send: clients at the same time, each with one request after another on connections of their own.
struct LoadPlan {
    std::vector<LoadRequest> requests;  // taken in turn; at least one
    std::uint32_t clients = 1;
    std::chrono::nanoseconds time{0};  // how long new requests are sent; only if count is 0
    std::uint64_t count = 0;           // how many requests altogether
};

struct LoadResult {
    std::vector<std::chrono::nanoseconds> latencies;  // of answers that are no refusal, in ascending order
    std::chrono::nanoseconds time{0};
    std::uint64_t errors = 0;  // refusals and connections that failed
    std::optional<Failure> firstError;
    bool isInterrupted = false;

    double perSecond() const;

    // The latency that this part of the answers doesn't exceed, 0 to 1; zero without answers.
    std::chrono::nanoseconds quantile(double part) const;
};

// Each client gets an exchange of its own from connect, which is called in this thread. Ctrl-C ends it early.
LoadResult runLoad(const LoadPlan& plan, const std::function<std::unique_ptr<Exchange>()>& connect);

}  // namespace halvern::morvane::client
