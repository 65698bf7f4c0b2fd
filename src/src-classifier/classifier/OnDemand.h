#pragma once

#include <atomic>
#include <mutex>

namespace halvern::classifier {

// A value that follows from others and is made when it is first asked for after those changed. Any number of
// threads may ask at once; forgetting needs the object to itself.
template <class T>
class OnDemand {
public:
    // The value, from make() if there is none. Throws what make throws, and there is none then.
    template <class Make>
    const T& get(const Make& make) const {
        if (!_isMade.load(std::memory_order_acquire)) {
            const std::lock_guard lock(_mutex);
            if (!_isMade.load(std::memory_order_relaxed)) {
                _value = make();
                _isMade.store(true, std::memory_order_release);
            }
        }
        return _value;
    }

    void forget() noexcept {
        _isMade.store(false, std::memory_order_relaxed);
        _value = T();
    }

private:
    mutable std::mutex _mutex;  // held while the value is made
    mutable std::atomic<bool> _isMade{false};
    mutable T _value;
};

}  // namespace halvern::classifier
