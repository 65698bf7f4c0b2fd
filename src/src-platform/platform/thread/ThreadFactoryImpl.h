#pragma once

#include "platform/thread/ThreadFactory.h"

namespace platform::thread {

// Makes threads in which an escaping exception ends the process without a word.
class ThreadFactoryImpl final : public ThreadFactory {
public:
    std::unique_ptr<Thread> create(Runnable& runnable) const override;
};

}  // namespace platform::thread
