#pragma once

#include <cstdint>

#include "platform/thread/ThreadImpl.h"
#include "platform/thread/ThreadLog.h"
#include "util/FixedStream.h"
#include "windows/seh/SehExceptionMapper.h"

namespace platform::thread {

// A thread whose runnable must not throw: what escapes from it is logged with the thread's name and id, and
// then the process ends by a failed check.
class LoggingThreadImpl final : public ThreadImpl {
public:
    // log and mapper may be null, and must live as long as the thread runs.
    LoggingThreadImpl(Runnable& runnable, ThreadLog* log, const windows::seh::SehExceptionMapper* mapper);

    // Puts a fault of the calling thread into words that name the thread. Leaves text empty if the calling
    // thread is not of this kind. Callable from a signal handler.
    static void describeFault(std::uint32_t code, util::FixedStream<1024>& text) noexcept;

private:
    void runOnThread() override;
    template <std::size_t SIZE>
    void appendOccurrence(util::FixedStream<SIZE>& text, const char* what) const;
    void log(const char* text) const noexcept;

    ThreadLog* const _log;
    const windows::seh::SehExceptionMapper* const _mapper;

    static thread_local const LoggingThreadImpl* _running;
};

}  // namespace platform::thread
