#include "platform/mutex/ReaderWriterLockImpl.h"

#include <cerrno>
#include <condition_variable>
#include <iterator>

#include "debug/Assertion.h"
#include "platform/thread/ThreadId.h"
#include "util/FixedStream.h"

namespace platform::mutex {

// A thread in the queue; lies on that thread's stack. Who lets it in takes it off the queue first.
struct ReaderWriterLockImpl::Waiter {
    std::uint32_t writer;             // its thread id; 0 for a reader
    Clock::time_point outOfPatience;  // of a writer
    bool admitted = false;
    std::condition_variable changed;
};

ReaderWriterLockImpl::ReaderWriterLockImpl(std::chrono::milliseconds writerPatience)
    : _writerPatience(writerPatience) {}

ReaderWriterLockImpl::~ReaderWriterLockImpl() = default;

void ReaderWriterLockImpl::lockReader() {
    std::unique_lock guard(_mutex);
    const auto place = placeOfNewReader();
    if (_writer == 0 && place == _waiting.begin()) {
        ++_readers;
        return;
    }
    Waiter waiter{.writer = 0, .outOfPatience = {}, .changed = {}};
    wait(guard, place, waiter);
}

void ReaderWriterLockImpl::unlockReader() {
    const std::lock_guard guard(_mutex);
    CHECK(_readers > 0);
    --_readers;
    admitWaiting();
}

void ReaderWriterLockImpl::lockWriter() {
    std::unique_lock guard(_mutex);
    const std::uint32_t id = thread::currentThreadId();
    if (isFree()) {
        _writer = id;
        return;
    }
    Waiter waiter{.writer = id, .outOfPatience = Clock::now() + _writerPatience, .changed = {}};
    wait(guard, _waiting.end(), waiter);
}

void ReaderWriterLockImpl::unlockWriter() {
    const std::lock_guard guard(_mutex);
    if (_writer != thread::currentThreadId()) {
        util::FixedStream<4096> message;
        message << "'ReleaseMutex' failed in ReaderWriterLockImpl. ";
        message.appendSystemError(EPERM);
        throw MutexException(message.str());
    }
    _writer = 0;
    admitWaiting();
}

// A new reader stands before the writers that still have patience, and behind everyone else. Writers lose it
// in the order in which they came, so those are the writers at the end of the queue.
std::list<ReaderWriterLockImpl::Waiter*>::iterator ReaderWriterLockImpl::placeOfNewReader() {
    auto place = _waiting.end();
    if (place == _waiting.begin()) {
        return place;
    }
    const Clock::time_point now = Clock::now();
    while (place != _waiting.begin()) {
        const Waiter& before = **std::prev(place);
        if (before.writer == 0 || before.outOfPatience <= now) {
            break;
        }
        --place;
    }
    return place;
}

void ReaderWriterLockImpl::wait(std::unique_lock<std::mutex>& guard, std::list<Waiter*>::iterator place,
                                Waiter& waiter) {
    _waiting.insert(place, &waiter);
    waiter.changed.wait(guard, [&] { return waiter.admitted; });
}

// Lets in whoever stands at the head of the queue, and with a reader all readers up to the next writer.
void ReaderWriterLockImpl::admitWaiting() {
    while (!_waiting.empty() && _writer == 0) {
        Waiter& next = *_waiting.front();
        if (next.writer != 0 && _readers != 0) {
            break;
        }
        if (next.writer != 0) {
            _writer = next.writer;
        } else {
            ++_readers;
        }
        _waiting.pop_front();
        next.admitted = true;
        // Still under _mutex, since the waiter is gone as soon as its thread runs on.
        next.changed.notify_one();
    }
}

}  // namespace platform::mutex
