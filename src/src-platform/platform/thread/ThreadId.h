#pragma once

#include <unistd.h>

#include <cstdint>

namespace platform::thread {

// The system's id of the calling thread, as logs and debuggers show it; never 0.
inline std::uint32_t currentThreadId() { return static_cast<std::uint32_t>(gettid()); }

}  // namespace platform::thread
