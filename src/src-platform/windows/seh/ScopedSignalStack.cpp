#include "windows/seh/ScopedSignalStack.h"

#include <cstddef>

#include "platform/memory/StackPool.h"

namespace windows::seh {

namespace {

// The unwinder and the reader of debug data need more than the 8 KiB that are usual for a handler.
constexpr std::size_t STACK_SIZE = std::size_t{128} * 1024;
constexpr std::size_t KEPT_STACKS = 16;

platform::memory::StackPool& stacks() {
    // Never destroyed: a process that ends in exit() may have threads at work.
    static auto& pool = *new platform::memory::StackPool(STACK_SIZE, KEPT_STACKS);
    return pool;
}

}  // namespace

ScopedSignalStack::ScopedSignalStack() noexcept : _memory(stacks().take()) {
    if (_memory == nullptr) {
        return;
    }
    stack_t stack{};
    stack.ss_sp = _memory;
    stack.ss_size = STACK_SIZE;
    if (sigaltstack(&stack, &_previous) != 0) {
        stacks().give(_memory);
        _memory = nullptr;
    }
}

ScopedSignalStack::~ScopedSignalStack() {
    if (_memory != nullptr) {
        sigaltstack(&_previous, nullptr);
        stacks().give(_memory);
    }
}

}  // namespace windows::seh
