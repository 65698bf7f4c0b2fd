#include "platform/StopSignals.h"

#include <utility>

#include "debug/Assertion.h"
#include "platform/thread/ThreadException.h"
#include "util/FixedStream.h"

namespace platform {

StopSignals::StopSignals(std::function<void()> stop) : _stop(std::move(stop)) {
    sigemptyset(&_signals);
    sigaddset(&_signals, SIGINT);
    sigaddset(&_signals, SIGTERM);
    CHECK(pthread_sigmask(SIG_BLOCK, &_signals, &_maskBefore) == 0);
    const int error = pthread_create(&_thread, nullptr, threadMain, this);
    if (error != 0) {
        pthread_sigmask(SIG_SETMASK, &_maskBefore, nullptr);
        util::FixedStream<4096> message;
        message << "Could not start the thread that waits for stop signals. ";
        throw thread::ThreadException(message.appendSystemError(static_cast<std::uint32_t>(error)).str());
    }
}

StopSignals::~StopSignals() {
    {
        const std::lock_guard lock(_mutex);
        _ending = true;
        // Under the lock: the thread either still waits for a signal, and takes this one, or it already waits
        // for _ending with the signals open, and must not get one any more.
        if (!_taken) {
            pthread_kill(_thread, SIGINT);
        }
    }
    _ended.notify_all();
    pthread_join(_thread, nullptr);
    pthread_sigmask(SIG_SETMASK, &_maskBefore, nullptr);
}

void* StopSignals::threadMain(void* self) {
    static_cast<StopSignals*>(self)->waitForSignal();
    return nullptr;
}

void StopSignals::waitForSignal() {
    int signal = 0;
    sigwait(&_signals, &signal);
    std::unique_lock lock(_mutex);
    _taken = true;
    if (_ending) {
        return;
    }
    _stop();
    // Whoever signals again doesn't want to wait for an orderly end: the default action is to die.
    pthread_sigmask(SIG_UNBLOCK, &_signals, nullptr);
    _ended.wait(lock, [this] { return _ending; });
}

}  // namespace platform
