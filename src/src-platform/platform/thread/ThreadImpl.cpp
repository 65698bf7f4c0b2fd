#include "platform/thread/ThreadImpl.h"

#include <cerrno>
#include <chrono>
#include <cstring>

#include "debug/Assertion.h"
#include "platform/memory/StackPool.h"
#include "platform/thread/ThreadId.h"
#include "util/Converter.h"
#include "util/FixedStream.h"
#include "windows/seh/ScopedSignalStack.h"

namespace platform::thread {

namespace {

constexpr std::size_t KEPT_STACKS = 16;

memory::StackPool& stacks() {
    // Never destroyed: a process that ends in exit() may have threads at work.
    static auto& pool = *new memory::StackPool(ThreadImpl::stackSizeInBytes, KEPT_STACKS);
    return pool;
}

int createThread(void* stack, void* (*function)(void*), void* argument) {
    pthread_t thread;
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error == 0) {
        error = pthread_attr_setstack(&attributes, stack, ThreadImpl::stackSizeInBytes);
        if (error == 0) {
            error = pthread_create(&thread, &attributes, function, argument);
        }
        pthread_attr_destroy(&attributes);
    }
    return error;
}

}  // namespace

ThreadImpl::ThreadImpl(Runnable& runnable) : _runnable(runnable) {}

ThreadImpl::~ThreadImpl() { CHECK(_state == CREATED || _state == DELETED); }

void ThreadImpl::start() {
    CHECK(_state == CREATED);
    CHECK(_thread == 0);
    // Nothing is touched once the thread is there: whoever it hands itself to may join it, and delete this
    // object, before this returns.
    _state = STARTED;
    void* const stack = _stack = stacks().take();
    const int error = stack == nullptr ? EAGAIN : createThread(stack, &ThreadImpl::threadFunction, this);
    if (error != 0) {
        if (stack != nullptr) {
            stacks().give(stack);
        }
        _state = CREATED;
        char buffer[256];
        util::FixedStream<4096> message;
        message << "Error creating thread using '_beginthreadex'. errno: " << error << ". doserrno: " << error
                << ". strerror: " << strerror_r(error, buffer, sizeof(buffer)) << ". ";
        message.appendSystemError(static_cast<std::uint32_t>(error));
        throw ThreadException(message.str());
    }
}

bool ThreadImpl::join(std::uint64_t milliseconds) {
    if (_state != STARTED) {
        return false;
    }
    const std::chrono::milliseconds limit(util::Converter::toUnsigned32(milliseconds));
    {
        std::unique_lock guard(_mutex);
        if (!_changed.wait_for(guard, limit, [this] { return _isAtItsEnd; })) {
            return false;
        }
    }
    join();
    return true;
}

void ThreadImpl::join() {
    if (_state != STARTED) {
        return;
    }
    {
        std::unique_lock guard(_mutex);
        _changed.wait(guard, [this] { return _thread != 0; });
    }
    const int error = pthread_join(_thread, nullptr);
    if (error != 0) {
        util::FixedStream<4096> message;
        message << "WaitForSingleObject failed while waiting for a thread. ";
        message.appendSystemError(static_cast<std::uint32_t>(error));
        throw ThreadException(message.str());
    }
    stacks().give(_stack);
    _state = DELETED;
}

bool ThreadImpl::isCurrent() const {
    const std::uint32_t id = currentThreadId();
    CHECK(id);
    return id == _id;
}

void ThreadImpl::setName(const std::string& name) { _name = name; }

std::string ThreadImpl::getName() const { return _name; }

void ThreadImpl::runOnThread() { _runnable.run(); }

void* ThreadImpl::threadFunction(void* argument) {
    CHECK(argument);
    auto& self = *static_cast<ThreadImpl*>(argument);
    self._id = currentThreadId();
    {
        const std::lock_guard guard(self._mutex);
        self._thread = pthread_self();
        self._changed.notify_all();
    }
    {
        const windows::seh::ScopedSignalStack signalStack;
        self.runOnThread();
    }
    const std::lock_guard guard(self._mutex);
    self._isAtItsEnd = true;
    self._changed.notify_all();
    return nullptr;
}

}  // namespace platform::thread
