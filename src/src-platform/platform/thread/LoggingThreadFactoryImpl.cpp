#include "platform/thread/LoggingThreadFactoryImpl.h"

#include "platform/thread/LoggingThreadImpl.h"

namespace platform::thread {

LoggingThreadFactoryImpl::LoggingThreadFactoryImpl(ThreadLog* log,
                                                   const windows::seh::SehExceptionMapper* mapper)
    : _log(log), _mapper(mapper) {}

std::unique_ptr<Thread> LoggingThreadFactoryImpl::create(Runnable& runnable) const {
    return std::make_unique<LoggingThreadImpl>(runnable, _log, _mapper);
}

}  // namespace platform::thread
