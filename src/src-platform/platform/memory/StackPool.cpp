#include "platform/memory/StackPool.h"

#include <sys/mman.h>

namespace platform::memory {

namespace {

constexpr std::size_t GUARD_SIZE = 4096;

}  // namespace

StackPool::StackPool(std::size_t size, std::size_t kept) : _size(size), _kept(kept) { _free.reserve(kept); }

StackPool::~StackPool() {
    for (void* const stack : _free) {
        unmap(stack);
    }
}

void* StackPool::take() noexcept {
    {
        const std::lock_guard guard(_mutex);
        if (!_free.empty()) {
            void* const stack = _free.back();
            _free.pop_back();
            return stack;
        }
    }
    void* const memory = mmap(nullptr, GUARD_SIZE + _size, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED) {
        return nullptr;
    }
    void* const stack = static_cast<char*>(memory) + GUARD_SIZE;
    if (mprotect(memory, GUARD_SIZE, PROT_NONE) != 0) {
        unmap(stack);
        return nullptr;
    }
    return stack;
}

void StackPool::give(void* stack) noexcept {
    {
        const std::lock_guard guard(_mutex);
        if (_free.size() < _kept) {
            _free.push_back(stack);
            return;
        }
    }
    unmap(stack);
}

void StackPool::unmap(void* stack) const noexcept {
    munmap(static_cast<char*>(stack) - GUARD_SIZE, GUARD_SIZE + _size);
}

}  // namespace platform::memory
