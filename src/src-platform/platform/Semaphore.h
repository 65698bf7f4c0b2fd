#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace platform {

// A counting semaphore of at most 2147483647 units, for the threads of this process. It may be destroyed when
// the last release has returned; that somebody got the unit is not enough.
class Semaphore {
public:
    // Throws util::ConverterException for a count above the maximum.
    explicit Semaphore(std::uint64_t initialCount);
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;
    virtual ~Semaphore() = default;

    // Takes one unit, waiting without limit until there is one.
    void wait();

    // As wait, but gives up after that time: false if there was no unit until then.
    bool waitFor(std::chrono::milliseconds time);

    // Adds units. Units that would pass the maximum change nothing. Throws util::ConverterException for more
    // units than the maximum.
    void release(std::uint64_t units);

private:
    std::mutex _mutex;
    std::condition_variable _released;
    std::uint64_t _count;        // guarded by _mutex
    std::uint64_t _waiting = 0;  // guarded by _mutex; threads in wait and waitFor
};

}  // namespace platform
