#include "util/MethodCaller.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <stdexcept>

#include "support/TempDir.h"

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
    EXPECT_EQ(counter.calls, 2);
    {
        util::MethodCaller0 guard(counter, &Counter::count);
        guard.dismiss();
        guard.execute();
    }
    EXPECT_EQ(counter.calls, 2);
}

TEST(MethodCallerTest, TheArgumentIsReadWhenTheCallIsMade) {
    Counter counter;
    int amount = 1;
    {
        util::MethodCaller1 guard(counter, &Counter::add, amount);
        util::MethodCaller1 dismissed(counter, &Counter::add, amount);
        util::MethodCaller1 executed(counter, &Counter::add, amount);
        dismissed.dismiss();
        executed.execute();
        EXPECT_EQ(counter.calls, 1);
        amount = 10;
    }
    EXPECT_EQ(counter.calls, 11);
}

TEST(MethodCallerTest, AFailureIsTheCallersUnlessItComesAtTheEndOfTheScope) {
    Counter counter;
    {
        util::MethodCaller0 guard(counter, &Counter::fail);
        EXPECT_THROW(guard.execute(), std::runtime_error);
        guard.dismiss();
    }
    EXPECT_EQ(counter.calls, 1);

    const support::TempDir reports;
    EXPECT_DEATH(
        {
            // The report of a failed check goes to the current directory.
            ASSERT_EQ(chdir(reports.path().c_str()), 0);
            util::MethodCaller0 guard(counter, &Counter::fail);
        },
        "false");
}
