#include "platform/event/Event.h"

#include <gtest/gtest.h>

#include "support/WaitingThread.h"

using platform::event::EventImpl;
using support::WaitingThread;

TEST(EventTest, StaysOpenForAllUntilItIsReset) {
    EventImpl event;
    {
        WaitingThread first([&] { event.wait(); });
        WaitingThread second([&] { event.wait(); });
        EXPECT_TRUE(first.becomesBlocked() && second.becomesBlocked());
        event.set();
        EXPECT_TRUE(first.becomesDone() && second.becomesDone());
    }
    event.set();
    event.wait();
    event.reset();
    WaitingThread third([&] { event.wait(); });
    EXPECT_TRUE(third.becomesBlocked());
    event.set();
}
