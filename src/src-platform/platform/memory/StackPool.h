#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

namespace platform::memory {

// Memory for stacks, all of one size, each with a page below it that nobody can touch, so that running out of
// it is a fault and not damage.
//
// Stacks that were given back serve again as they are. A new one, and one that is returned to the system,
// makes all processors that run this process forget what they know of its memory, which costs more than all
// else that a thread needs to start.
class StackPool {
public:
    // size is in bytes and a multiple of the system's pages; kept is how many free stacks are held at most.
    StackPool(std::size_t size, std::size_t kept);
    StackPool(const StackPool&) = delete;
    StackPool& operator=(const StackPool&) = delete;
    ~StackPool();  // Stacks that have not been given back stay.

    // The lowest byte of a stack, or null if the system has no memory.
    void* take() noexcept;

    // Takes back what take gave, which nobody may use any more.
    void give(void* stack) noexcept;

    std::size_t size() const { return _size; }

private:
    void unmap(void* stack) const noexcept;

    const std::size_t _size;
    const std::size_t _kept;
    std::mutex _mutex;
    std::vector<void*> _free;  // guarded by _mutex; has room for as many as are kept
};

}  // namespace platform::memory
