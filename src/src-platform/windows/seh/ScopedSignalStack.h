#pragma once

#include <csignal>

namespace windows::seh {

// Gives the calling thread a stack of its own for signal handlers while the object lives, so that a thread
// that used up its stack can still be reported. To be made and destroyed by the thread itself, one inside the
// other where there are several. Where memory does not suffice the thread does without.
class ScopedSignalStack {
public:
    ScopedSignalStack() noexcept;
    ScopedSignalStack(const ScopedSignalStack&) = delete;
    ScopedSignalStack& operator=(const ScopedSignalStack&) = delete;
    ~ScopedSignalStack();

private:
    void* _memory = nullptr;
    stack_t _previous{};
};

}  // namespace windows::seh
