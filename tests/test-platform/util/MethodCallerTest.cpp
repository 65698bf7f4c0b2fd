#include "util/MethodCaller.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/FailedCheck.h"

namespace {

struct Counter {
    void count() { ++calls; }
    void add(int& amount) { calls += amount; }
    void fail() {
        ++calls;
        throw std::runtime_error("fail");
    }

    int calls = 0;
};

}  // namespace

TEST(MethodCallerTest, CallsOnceUnlessDismissed) {
    Counter counter;
    { util::MethodCaller0 guard(counter, &Counter::count); }
    EXPECT_EQ(counter.calls, 1);
    {
        util::MethodCaller0 guard(counter, &Counter::count);
        guard.execute();
        guard.execute();
        EXPECT_EQ(counter.calls, 2);
    }
    {
        util::MethodCaller0 guard(counter, &Counter::count);
        guard.dismiss();
        guard.execute();
    }
    EXPECT_EQ(counter.calls, 2);

    int amount = 1;
    {
        util::MethodCaller1 guard(counter, &Counter::add, amount);
        util::MethodCaller1 dismissed(counter, &Counter::add, amount);
        util::MethodCaller1 executed(counter, &Counter::add, amount);
        dismissed.dismiss();
        executed.execute();
        EXPECT_EQ(counter.calls, 3);
        amount = 10;  // read when the call is made
    }
    EXPECT_EQ(counter.calls, 13);
}

TEST(MethodCallerTest, AFailureIsTheCallersUnlessItComesAtTheEndOfTheScope) {
    Counter counter;
    {
        util::MethodCaller0 guard(counter, &Counter::fail);
        EXPECT_THROW(guard.execute(), std::runtime_error);
        guard.dismiss();
    }
    EXPECT_EQ(counter.calls, 1);
    const std::string check =
        support::failedCheck([&] { util::MethodCaller0 guard(counter, &Counter::fail); });
    EXPECT_EQ(check, "false");
}
