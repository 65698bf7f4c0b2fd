#include "load/Load.h"

#include <gtest/gtest.h>

#include <atomic>

#include "support/ClientRun.h"

namespace halvern::morvane::client {
namespace {

struct Answering final : Exchange {
    explicit Answering(std::atomic<int>& counter) : asked(counter) {}
    std::string ask(const std::string&) override {
        const int number = ++asked;
        if (number % 10 == 0) {
            throw Failure{ExitCode::UNREACHABLE, "gone"};
        }
        return number % 10 == 1 ? support::refusal(5000, "no") : support::success("");
    }
    std::atomic<int>& asked;
};

TEST(LoadTest, ExactlyTheRequestsAskedForAreSentHoweverManyClientsShareThem) {
    std::atomic<int> asked = 0;
    const LoadResult result = runLoad({.requests = {{"a"}}, .clients = 8, .count = 1000},
                                      [&] { return std::make_unique<Answering>(asked); });
    EXPECT_EQ(asked, 1000);
    EXPECT_EQ(result.latencies.size(), 800U);
    EXPECT_EQ(result.errors, 200U);
    EXPECT_TRUE(std::is_sorted(result.latencies.begin(), result.latencies.end()));
}

TEST(LoadTest, AQuantileIsALatencyThatThePartDoesNotExceed) {
    LoadResult result;
    EXPECT_EQ(result.quantile(0.5).count(), 0);
    for (int i = 1; i <= 1000; ++i) {
        result.latencies.emplace_back(i);
    }
    for (const auto& [part, latency] :
         {std::pair(0.0, 1), {0.5, 500}, {0.99, 990}, {0.999, 999}, {0.9991, 1000}, {1.0, 1000}}) {
        EXPECT_EQ(result.quantile(part).count(), latency) << part;
    }
}

}  // namespace
}  // namespace halvern::morvane::client
