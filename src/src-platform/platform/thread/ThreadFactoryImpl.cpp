#include "platform/thread/ThreadFactoryImpl.h"

#include "platform/thread/ThreadImpl.h"

namespace platform::thread {

std::unique_ptr<Thread> ThreadFactoryImpl::create(Runnable& runnable) const {
    return std::make_unique<ThreadImpl>(runnable);
}

}  // namespace platform::thread
