#include "load/Load.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <deque>
#include <system_error>
#include <thread>

#include "server/Answer.h"
#include "server/Interrupts.h"
#include "windows/com/xml/Library.h"

namespace halvern::morvane::client {

namespace {

using Clock = std::chrono::steady_clock;

// Reading the answer as XML would cost the client more than the exchange; a refusal can be told without.
bool isRefusal(const std::string& answer) { return answer.find("success=\"false\"") != std::string::npos; }

class Client {
public:
    Client(const LoadPlan& plan, std::unique_ptr<Exchange> exchange, std::size_t first)
        : _plan(plan), _exchange(std::move(exchange)), _next(first) {}

    // Until the end, or until no request is left; also until Ctrl-C.
    void run(Clock::time_point end, std::atomic<std::uint64_t>& started, const std::atomic<bool>& isCancelled,
             const Interrupts& interrupts) {
        while (!interrupts.requested() && !isCancelled &&
               (_plan.count != 0 ? started++ < _plan.count : Clock::now() < end)) {
            askOnce(_plan.requests[_next++ % _plan.requests.size()]);
        }
    }

    LoadResult result;

private:
    void askOnce(const LoadRequest& request) {
        const Clock::time_point start = Clock::now();
        try {
            const std::string answer = _exchange->ask(request.bytes);
            const Clock::duration latency = Clock::now() - start;
            if (!isRefusal(answer)) {
                result.latencies.push_back(latency);
                return;
            }
            fail(refusal(Answer::parse(answer), request.call));
        } catch (const Failure& failure) {
            if (failure.code != ExitCode::INTERRUPTED) {
                fail(failure);
            }
        }
    }

    void fail(const Failure& failure) {
        if (result.errors++ == 0) {
            result.firstError = failure;
        }
    }

    const LoadPlan& _plan;
    const std::unique_ptr<Exchange> _exchange;
    std::size_t _next;
};

}  // namespace

double LoadResult::perSecond() const {
    const double seconds = std::chrono::duration<double>(time).count();
    return seconds > 0 ? static_cast<double>(latencies.size()) / seconds : 0;
}

std::chrono::nanoseconds LoadResult::quantile(double part) const {
    if (latencies.empty()) {
        return {};
    }
    const auto rank = static_cast<std::size_t>(std::ceil(part * static_cast<double>(latencies.size())));
    return latencies[std::clamp<std::size_t>(rank, 1, latencies.size()) - 1];
}

LoadResult runLoad(const LoadPlan& plan, const std::function<std::unique_ptr<Exchange>()>& connect) {
    const windows::com::xml::Library library;  // has to outlive the threads, which read refusals
    const Interrupts interrupts;
    std::deque<Client> clients;
    for (std::uint32_t i = 0; i < plan.clients; ++i) {
        clients.emplace_back(plan, connect(), i);
    }
    std::atomic<std::uint64_t> started = 0;
    std::atomic<bool> isCancelled = false;
    const Clock::time_point start = Clock::now();
    {
        std::vector<std::jthread> threads;
        try {
            for (Client& client : clients) {
                threads.emplace_back(
                    [&] { client.run(start + plan.time, started, isCancelled, interrupts); });
            }
        } catch (const std::system_error& e) {
            isCancelled = true;
            throw Failure{
                ExitCode::UNREACHABLE,
                "This machine has no threads for so many clients: " + std::string(e.what()) + ".",
                "Take fewer: --clients " + std::to_string(std::max<std::size_t>(threads.size(), 1)) + "."};
        }
    }
    LoadResult all;
    all.time = Clock::now() - start;
    for (const Client& client : clients) {
        const LoadResult& one = client.result;
        all.latencies.insert(all.latencies.end(), one.latencies.begin(), one.latencies.end());
        all.errors += one.errors;
        all.firstError = all.firstError ? all.firstError : one.firstError;
    }
    std::sort(all.latencies.begin(), all.latencies.end());
    all.isInterrupted = interrupts.requested();
    return all;
}

}  // namespace halvern::morvane::client
