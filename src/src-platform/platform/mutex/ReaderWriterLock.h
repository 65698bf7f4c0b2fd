#pragma once

namespace platform::mutex {

// The sides of a readers-writer lock. A lock that has both sides is asked through a reference to one of them,
// or by name: `lock.ReaderLock::lock()`.
class ReaderLock {
public:
    virtual ~ReaderLock() = default;
    void lock() { lockReader(); }
    void unlock() { unlockReader(); }

private:
    // Under names of their own, since a class that is both sides could implement only one lock().
    virtual void lockReader() = 0;
    virtual void unlockReader() = 0;
};

class WriterLock {
public:
    virtual ~WriterLock() = default;
    void lock() { lockWriter(); }
    void unlock() { unlockWriter(); }

private:
    virtual void lockWriter() = 0;
    virtual void unlockWriter() = 0;
};

// Any number of readers, or one writer.
class ReaderWriterLock : public ReaderLock, public WriterLock {};

// Holds the reader side from its construction to the end of the scope.
class ReaderAutoLock {
public:
    explicit ReaderAutoLock(ReaderLock& lock) : _lock(lock) { _lock.lock(); }
    ReaderAutoLock(const ReaderAutoLock&) = delete;
    ReaderAutoLock& operator=(const ReaderAutoLock&) = delete;
    ~ReaderAutoLock() { _lock.unlock(); }

private:
    ReaderLock& _lock;
};

// Holds the writer side from its construction to the end of the scope, which must be on the same thread.
class WriterAutoLock {
public:
    explicit WriterAutoLock(WriterLock& lock) : _lock(lock) { _lock.lock(); }
    WriterAutoLock(const WriterAutoLock&) = delete;
    WriterAutoLock& operator=(const WriterAutoLock&) = delete;
    ~WriterAutoLock() { _lock.unlock(); }

private:
    WriterLock& _lock;
};

}  // namespace platform::mutex
