#pragma once

namespace platform::mutex {

// Unlocks at the end of the scope what it has locked. Locking is a step of its own, so that the guard can
// stand where the lock isn't taken yet. An unlock that throws ends the process.
template <class Mutex>
class AutoLock {
public:
    explicit AutoLock(Mutex& mutex) : _mutex(mutex) {}
    AutoLock(const AutoLock&) = delete;
    AutoLock& operator=(const AutoLock&) = delete;

    virtual ~AutoLock() {
        if (_locked) {
            _mutex.unlock();
        }
    }

    void lock() {
        _mutex.lock();
        _locked = true;
    }

private:
    bool _locked = false;
    Mutex& _mutex;
};

}  // namespace platform::mutex
