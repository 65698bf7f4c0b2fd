#pragma once

#include <chrono>
#include <thread>

namespace support {

// Waits for a condition that another thread brings about. False if it doesn't come true within half a minute,
// which no healthy run needs.
template <class Condition>
bool waitUntil(const Condition& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace support
