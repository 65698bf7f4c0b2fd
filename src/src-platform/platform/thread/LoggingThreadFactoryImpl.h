#pragma once

#include "platform/thread/ThreadFactory.h"
#include "platform/thread/ThreadLog.h"
#include "windows/seh/SehExceptionMapper.h"

namespace platform::thread {

// Makes threads that log what escapes from their runnables. Log and mapper may be null, and must outlive all
// threads.
class LoggingThreadFactoryImpl final : public ThreadFactory {
public:
    LoggingThreadFactoryImpl(ThreadLog* log, const windows::seh::SehExceptionMapper* mapper);

    std::unique_ptr<Thread> create(Runnable& runnable) const override;

private:
    ThreadLog* const _log;
    const windows::seh::SehExceptionMapper* const _mapper;
};

}  // namespace platform::thread
