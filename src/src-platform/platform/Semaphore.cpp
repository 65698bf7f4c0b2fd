#include "platform/Semaphore.h"

#include <limits>

#include "util/Converter.h"

namespace platform {

namespace {

constexpr std::uint64_t maximum = std::numeric_limits<std::int32_t>::max();

}  // namespace

Semaphore::Semaphore(std::uint64_t initialCount)
    : _count(static_cast<std::uint64_t>(util::Converter::toSigned32(initialCount))) {}

void Semaphore::wait() {
    std::unique_lock guard(_mutex);
    ++_waiting;
    _released.wait(guard, [this] { return _count != 0; });
    --_waiting;
    --_count;
}

bool Semaphore::waitFor(std::chrono::milliseconds time) {
    std::unique_lock guard(_mutex);
    ++_waiting;
    const bool taken = _released.wait_for(guard, time, [this] { return _count != 0; });
    --_waiting;
    _count -= taken ? 1 : 0;
    return taken;
}

void Semaphore::release(std::uint64_t units) {
    const auto added = static_cast<std::uint64_t>(util::Converter::toSigned32(units));
    {
        const std::lock_guard guard(_mutex);
        if (added > maximum - _count) {
            return;
        }
        _count += added;
        if (_waiting == 0) {
            return;
        }
    }
    // Not under the lock, or whoever wakes up would have to wait for it at once.
    if (added == 1) {
        _released.notify_one();
    } else {
        _released.notify_all();
    }
}

}  // namespace platform
