#include "windows/seh/ScopedSignalStack.h"

#include <sys/mman.h>

#include <cstddef>

namespace windows::seh {

namespace {

// The unwinder and the reader of debug data need more than the 8 KiB that are usual for a handler.
constexpr std::size_t STACK_SIZE = std::size_t{128} * 1024;
constexpr std::size_t GUARD_SIZE = 4096;

}  // namespace

ScopedSignalStack::ScopedSignalStack() noexcept {
    void* memory = mmap(nullptr, GUARD_SIZE + STACK_SIZE, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED) {
        return;
    }
    stack_t stack{};
    stack.ss_sp = static_cast<char*>(memory) + GUARD_SIZE;
    stack.ss_size = STACK_SIZE;
    if (mprotect(memory, GUARD_SIZE, PROT_NONE) != 0 || sigaltstack(&stack, &_previous) != 0) {
        munmap(memory, GUARD_SIZE + STACK_SIZE);
        return;
    }
    _memory = memory;
}

ScopedSignalStack::~ScopedSignalStack() {
    if (_memory != nullptr) {
        sigaltstack(&_previous, nullptr);
        munmap(_memory, GUARD_SIZE + STACK_SIZE);
    }
}

}  // namespace windows::seh
