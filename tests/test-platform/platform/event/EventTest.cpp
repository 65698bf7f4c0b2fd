#include "platform/event/Event.h"

#include <gtest/gtest.h>

#include "support/WaitingThread.h"

TEST(EventTest, LetsAllPassThatWait) {
    platform::event::EventImpl event;
    const support::WaitingThread first([&] { event.wait(); });
    const support::WaitingThread second([&] { event.wait(); });
    EXPECT_TRUE(first.becomesBlocked() && second.becomesBlocked());
    event.set();
    EXPECT_TRUE(first.becomesDone() && second.becomesDone());
    event.set();
}
