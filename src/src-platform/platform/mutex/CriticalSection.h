#pragma once

#include <mutex>

#include "platform/mutex/Mutex.h"

namespace platform::mutex {

// A recursive lock without an owner check and without failures.
class CriticalSection final : public Mutex {
public:
    void lock() override { _mutex.lock(); }
    void unlock() override { _mutex.unlock(); }

private:
    std::recursive_mutex _mutex;
};

}  // namespace platform::mutex
