#include "platform/StopSignals.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/event/Event.h"

namespace {

// Runs the body in a process of its own, as signals concern a whole process; gives its wait status.
template <class Body>
int statusOfChild(Body body) {
    const pid_t child = fork();
    if (child == 0) {
        body();
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

TEST(StopSignalsTest, TheFirstSignalCallsForTheStop) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const int status = statusOfChild([signal] {
            platform::event::EventImpl event;
            const platform::StopSignals signals([&event] { event.set(); });
            kill(getpid(), signal);
            event.wait();
        });
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << signal << ": " << status;
    }
}

TEST(StopSignalsTest, ASecondSignalEndsTheProcess) {
    const int status = statusOfChild([] {
        platform::event::EventImpl event;
        const platform::StopSignals signals([&event] { event.set(); });
        kill(getpid(), SIGTERM);
        event.wait();
        kill(getpid(), SIGINT);
        for (;;) {
            pause();
        }
    });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
}

TEST(StopSignalsTest, WithoutASignalItGoesAwayAndGivesTheSignalsBack) {
    const int status = statusOfChild([] {
        platform::event::EventImpl event;
        {
            const platform::StopSignals signals([&event] { event.set(); });
        }
        raise(SIGTERM);
    });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
}

}  // namespace
