#pragma once

#include <memory>

#include "platform/thread/Runnable.h"
#include "platform/thread/Thread.h"
#include "platform/thread/ThreadFactory.h"

namespace platform::thread {

// A base for classes that are a thread and run themselves. The thread of the factory's making does the work.
class InheritableThreadImpl : public Thread, public Runnable {
public:
    explicit InheritableThreadImpl(const ThreadFactory& threadFactory);

    void start() override;
    bool join(std::uint64_t milliseconds) override;
    void join() override;
    bool isCurrent() const override;
    void setName(const std::string& name) override;
    std::string getName() const override;

private:
    const std::unique_ptr<Thread> _thread;
};

}  // namespace platform::thread
