#include "platform/mutex/MutexImpl.h"

#include <pthread.h>

#include <cerrno>

#include "debug/Assertion.h"
#include "platform/SharedByName.h"
#include "platform/thread/ThreadId.h"
#include "util/FixedStream.h"

namespace platform::mutex {

namespace {

void throwIfFailed(int error, const char* text) {
    if (error != 0) {
        util::FixedStream<4096> message;
        message << text;
        message.appendSystemError(static_cast<std::uint32_t>(error));
        throw MutexException(message.str());
    }
}

}  // namespace

class MutexImpl::SystemMutex {
public:
    SystemMutex() {
        pthread_mutexattr_t attributes;
        throwIfFailed(pthread_mutexattr_init(&attributes), "Error creating the mutex. ");
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        const int error = pthread_mutex_init(&_mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
        throwIfFailed(error, "Error creating the mutex. ");
    }
    SystemMutex(const SystemMutex&) = delete;
    SystemMutex& operator=(const SystemMutex&) = delete;
    ~SystemMutex() {
        if (pthread_mutex_destroy(&_mutex) != 0) {
            CHECK(false);
        }
    }

    void lock() { throwIfFailed(pthread_mutex_lock(&_mutex), "Error locking the mutex: "); }
    void unlock() { throwIfFailed(pthread_mutex_unlock(&_mutex), "Error releasing the mutex: "); }

    static std::shared_ptr<SystemMutex> get(const char* name) {
        // Never destroyed: a process that ends in exit() may have threads at work.
        static auto& named = *new SharedByName<SystemMutex>;
        return name == nullptr ? std::make_shared<SystemMutex>() : named.get(name);
    }

private:
    pthread_mutex_t _mutex;
};

MutexImpl::MutexImpl(const char* name) : _mutex(SystemMutex::get(name)) {}

MutexImpl::~MutexImpl() { CHECK(_lockCount == 0); }

void MutexImpl::lock() {
    _mutex->lock();
    _owner = thread::currentThreadId();
    ++_lockCount;
}

void MutexImpl::unlock() {
    const std::uint32_t id = thread::currentThreadId();
    const std::uint32_t owner = _owner;
    if (owner != id) {
        util::FixedStream<4096> message;
        message
            << "Error unlocking the mutex. The thread calling unlock() was not the thread that lock()ed the "
               "mutex.\nThe thread that locked the mutex has id: "
            << owner << "\nThe thread unlocking has id: " << id;
        message.appendSystemError(EPERM);
        throw MutexException(message.str());
    }
    if (--_lockCount == 0) {
        _owner = 0;
    }
    _mutex->unlock();
}

}  // namespace platform::mutex
