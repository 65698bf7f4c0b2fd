#pragma once

#include <memory>

#include "platform/thread/Runnable.h"
#include "platform/thread/Thread.h"

namespace platform::thread {

class ThreadFactory {
public:
    virtual ~ThreadFactory() = default;

    // A thread without a name that has not been started. The runnable must live as long as the thread runs.
    virtual std::unique_ptr<Thread> create(Runnable& runnable) const = 0;
};

}  // namespace platform::thread
