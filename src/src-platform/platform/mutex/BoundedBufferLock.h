#pragma once

#include <cstdint>

#include "platform/Semaphore.h"
#include "platform/mutex/CriticalSection.h"

namespace platform::mutex {

// Guards a buffer of limited size whose storage lies elsewhere.
class BoundedBufferLock {
public:
    virtual ~BoundedBufferLock() = default;

    // Waits until there is a free place, and then for the buffer.
    virtual void lockProducer() = 0;
    // Gives the buffer back; changed tells whether an item was really added.
    virtual void unlockProducer(bool changed) = 0;

    // Waits until there is an item, and then for the buffer.
    virtual void lockConsumer() = 0;
    // Gives the buffer back; changed tells whether an item was really taken.
    virtual void unlockConsumer(bool changed) = 0;
};

class BoundedBufferLockImpl final : public BoundedBufferLock {
public:
    // Throws util::ConverterException for a capacity above 2147483647.
    explicit BoundedBufferLockImpl(std::uint64_t capacity);

    void lockProducer() override;
    void unlockProducer(bool changed) override;
    void lockConsumer() override;
    void unlockConsumer(bool changed) override;

private:
    Semaphore _free;
    Semaphore _used;
    CriticalSection _criticalSection;
};

}  // namespace platform::mutex
