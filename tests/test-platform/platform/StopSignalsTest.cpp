#include "platform/StopSignals.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "platform/event/Event.h"

namespace {

TEST(StopSignalsTest, TheFirstSignalCallsForTheStopAndASecondEndsTheProcess) {
    for (const int first : {SIGINT, SIGTERM}) {
        const int second = SIGINT + SIGTERM - first;
        EXPECT_EXIT(
            {
                platform::event::EventImpl event;
                const platform::StopSignals signals([&event] { event.set(); });
                kill(getpid(), first);
                event.wait();
                kill(getpid(), second);
                for (;;) {
                    pause();
                }
            },
            testing::KilledBySignal(second), "");
    }
}

}  // namespace
