#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/mutex/Mutex.h"
#include "platform/mutex/MutexException.h"

namespace platform::mutex {

// A mutex that knows its owner, and that may have a name.
class MutexImpl : public Mutex {
public:
    // All mutexes of one name in the process are the same lock; one without a name is on its own.
    // Throws MutexException if the system can't make it.
    explicit MutexImpl(const char* name = nullptr);
    MutexImpl(const MutexImpl&) = delete;
    MutexImpl& operator=(const MutexImpl&) = delete;
    ~MutexImpl() override;  // Requires that it is not locked.

    // Waits without limit. Throws MutexException if the system refuses.
    void lock() override;

    // Throws MutexException, and changes nothing, on a thread that doesn't hold the lock.
    void unlock() override;

private:
    class SystemMutex;

    const std::shared_ptr<SystemMutex> _mutex;  // shared by all objects of the same name
    std::atomic<std::uint32_t> _owner = 0;  // thread id, 0 if free; others than the owner read it in unlock
    std::int32_t _lockCount = 0;            // changed only while the lock is held
};

}  // namespace platform::mutex
