#include "platform/StopSignals.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/event/Event.h"
#include "platform/thread/ThreadException.h"

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

TEST(StopSignalsTest, TheFirstSignalCallsForTheStopAndASecondEndsTheProcess) {
    for (const int first : {SIGINT, SIGTERM}) {
        const int status = statusOfChild([first] {
            platform::event::EventImpl event;
            const platform::StopSignals signals([&event] { event.set(); });
            kill(getpid(), first);
            event.wait();
            kill(getpid(), SIGINT + SIGTERM - first);
            for (;;) {
                pause();
            }
        });
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT + SIGTERM - first) << status;
    }
}

TEST(StopSignalsTest, WithoutItsThreadItChangesNothing) {
#ifdef MORVANE_SANITIZED
    GTEST_SKIP() << "A sanitizer can't be without memory";
#endif
    const int status = statusOfChild([] {
        // Larger than any stack that an ended thread may have left for the next one.
        pthread_attr_t large;
        pthread_attr_init(&large);
        pthread_attr_setstacksize(&large, std::size_t{1} << 30);
        pthread_setattr_default_np(&large);
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_AS, &none);
        try {
            const platform::StopSignals signals([] {});
        } catch (const platform::thread::ThreadException&) {
            raise(SIGTERM);
        }
    });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
}

}  // namespace
