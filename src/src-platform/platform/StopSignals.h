#pragma once

#include <pthread.h>
#include <signal.h>

#include <condition_variable>
#include <functional>
#include <mutex>

namespace platform {

// Turns the first SIGINT or SIGTERM into a call; a second one ends the process at once.
//
// To be built before any other thread: both signals are blocked in the building thread, every thread made
// later inherits that, and only the thread in here takes them. What the process did with them before comes
// back at the end.
class StopSignals {
public:
    // Calls stop at most once, on a thread of its own. It must not throw. Throws thread::ThreadException,
    // and then nothing has changed.
    explicit StopSignals(std::function<void()> stop);
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

private:
    static void* threadMain(void* self);
    void waitForSignal();

    const std::function<void()> _stop;
    sigset_t _signals;
    sigset_t _maskBefore;
    pthread_t _thread;
    std::mutex _mutex;
    std::condition_variable _ended;
    bool _taken = false;   // guarded by _mutex: a signal has come
    bool _ending = false;  // guarded by _mutex: the destructor is at work
};

}  // namespace platform
