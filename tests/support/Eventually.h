#pragma once

#include <chrono>
#include <thread>

namespace support {

// Waits until the condition holds; false if it doesn't within a time that only a fault can take.
template <class Condition>
bool eventually(const Condition& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace support
