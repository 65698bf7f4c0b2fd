#pragma once

namespace platform::mutex {

// A recursive lock: the thread that holds it may lock it again, and unlocks it as often.
class Mutex {
public:
    virtual ~Mutex() = default;
    virtual void lock() = 0;
    virtual void unlock() = 0;
};

}  // namespace platform::mutex
