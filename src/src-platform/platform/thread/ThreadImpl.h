#pragma once

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "platform/thread/Runnable.h"
#include "platform/thread/Thread.h"
#include "platform/thread/ThreadException.h"

namespace platform::thread {

// An exception that leaves the runnable ends the process.
class ThreadImpl : public Thread {
public:
    // Enough for every road through the server, the XML library's deepest recursions included.
    static constexpr std::size_t stackSizeInBytes = std::size_t{2} * 1024 * 1024;

    explicit ThreadImpl(Runnable& runnable);
    ThreadImpl(const ThreadImpl&) = delete;
    ThreadImpl& operator=(const ThreadImpl&) = delete;
    ~ThreadImpl() override;

    // Throws ThreadException if the system has no thread to give; the object may then be started again.
    void start() override;

    // Both throw ThreadException if the system refuses to wait, and the first util::ConverterException for
    // more than 4294967295 milliseconds.
    bool join(std::uint64_t milliseconds) override;
    void join() override;

    bool isCurrent() const override;
    void setName(const std::string& name) override;
    std::string getName() const override;

protected:
    // The body of the thread.
    virtual void runOnThread();

    Runnable& _runnable;
    std::string _name;

private:
    enum State { CREATED, STARTED, DELETED };

    static void* threadFunction(void* argument);

    std::atomic<std::uint32_t> _id = 0;  // stored by the new thread before anything else; 0 until then
    State _state = CREATED;
    void* _stack = nullptr;  // of the pool, from the start to the join

    std::mutex _mutex;  // guards the rest
    std::condition_variable _changed;
    pthread_t _thread{};  // stored by the new thread, since start may return later than the thread ends
    bool _isAtItsEnd = false;
};

}  // namespace platform::thread
