#pragma once

#include <unistd.h>

#include <cstdint>

namespace platform::thread {

// The system's id of the calling thread, as logs and debuggers show it; never 0.
inline std::uint32_t currentThreadId() {
    // The library asks the system each time, which a request with all its locks would pay a dozen times.
    static thread_local const auto id = static_cast<std::uint32_t>(gettid());
    return id;
}

}  // namespace platform::thread
