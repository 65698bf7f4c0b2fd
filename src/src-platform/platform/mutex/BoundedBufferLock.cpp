#include "platform/mutex/BoundedBufferLock.h"

namespace platform::mutex {

BoundedBufferLockImpl::BoundedBufferLockImpl(std::uint64_t capacity) : _free(capacity), _used(0) {}

void BoundedBufferLockImpl::lockProducer() {
    _free.wait();
    _criticalSection.lock();
}

// A unit that turned out not to be needed goes back where it came from.
void BoundedBufferLockImpl::unlockProducer(bool changed) {
    _criticalSection.unlock();
    (changed ? _used : _free).release(1);
}

void BoundedBufferLockImpl::lockConsumer() {
    _used.wait();
    _criticalSection.lock();
}

void BoundedBufferLockImpl::unlockConsumer(bool changed) {
    _criticalSection.unlock();
    (changed ? _free : _used).release(1);
}

}  // namespace platform::mutex
