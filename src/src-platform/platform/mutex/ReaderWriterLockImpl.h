#pragma once

#include <chrono>
#include <cstdint>
#include <list>
#include <mutex>

#include "platform/mutex/MutexException.h"
#include "platform/mutex/ReaderWriterLock.h"

namespace platform::mutex {

// A readers-writer lock that prefers readers, within bounds.
//
// A reader enters at once while readers are in, past any waiting writer; when a writer leaves, the readers
// that wait go in together, before the next writer. But a writer that has waited for its patience goes before
// readers that come after that, so that a steady stream of readers can't keep it out for ever. Writers go in
// the order in which they came.
//
// The writer side is given back on the thread that took it; the reader side on any thread. Neither side is
// recursive: whoever holds the writer side must not ask for any side, and a reader that asks again may wait
// for ever behind a writer.
class ReaderWriterLockImpl : public ReaderWriterLock {
public:
    static constexpr std::chrono::milliseconds defaultPatience{1000};

    explicit ReaderWriterLockImpl(std::chrono::milliseconds writerPatience = defaultPatience);
    ReaderWriterLockImpl(const ReaderWriterLockImpl&) = delete;
    ReaderWriterLockImpl& operator=(const ReaderWriterLockImpl&) = delete;
    ~ReaderWriterLockImpl() override;

private:
    using Clock = std::chrono::steady_clock;
    struct Waiter;

    void lockReader() override;
    void unlockReader() override;
    void lockWriter() override;
    // Throws MutexException, and changes nothing, on a thread that doesn't hold the writer side.
    void unlockWriter() override;

    // All of these: _mutex held.
    std::list<Waiter*>::iterator placeOfNewReader();
    void wait(std::unique_lock<std::mutex>& guard, std::list<Waiter*>::iterator place, Waiter& waiter);
    void admitWaiting();
    bool isFree() const { return _readers == 0 && _writer == 0; }

    const Clock::duration _writerPatience;

    std::mutex _mutex;            // guards the rest
    std::uint32_t _readers = 0;   // readers inside
    std::uint32_t _writer = 0;    // thread id of the writer inside, 0 if there is none
    std::list<Waiter*> _waiting;  // in the order in which they will go in
};

}  // namespace platform::mutex
