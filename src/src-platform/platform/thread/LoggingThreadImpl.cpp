#include "platform/thread/LoggingThreadImpl.h"

#include <exception>

#include "debug/Assertion.h"
#include "exceptions/Exception.h"
#include "platform/thread/ThreadId.h"

namespace platform::thread {

thread_local const LoggingThreadImpl* LoggingThreadImpl::_running = nullptr;

LoggingThreadImpl::LoggingThreadImpl(Runnable& runnable, ThreadLog* log,
                                     const windows::seh::SehExceptionMapper* mapper)
    : ThreadImpl(runnable), _log(log), _mapper(mapper) {}

void LoggingThreadImpl::describeFault(std::uint32_t code, util::FixedStream<1024>& text) noexcept {
    if (_running == nullptr) {
        return;
    }
    _running->appendOccurrence(text, "A SEH exception occurred in one of the running threads.");
    const char* const words = _running->_mapper != nullptr ? _running->_mapper->getText(code) : nullptr;
    if (words != nullptr) {
        text << "\n" << words;
    } else {
        text << "\nCouldn't find a seh string representation of the exception code " << code << ".";
    }
}

void LoggingThreadImpl::runOnThread() {
    _running = this;
    util::FixedStream<4096> text;
    try {
        _runnable.run();
    } catch (const exceptions::Exception& exception) {
        appendOccurrence(text, "An Exception occurred in one of the running threads.");
        text << "\n" << exception.what();
        log(text.str());
        CHECK(false, text.str());
    } catch (const std::exception& exception) {
        appendOccurrence(text, "A std exception occurred in one of the running threads.");
        text << "\n" << exception.what();
        log(text.str());
        CHECK(false, exception.what());
    } catch (...) {
        appendOccurrence(text, "A running thread threw a ... exception.");
        log(text.str());
        CHECK(false);
    }
    _running = nullptr;
}

template <std::size_t SIZE>
void LoggingThreadImpl::appendOccurrence(util::FixedStream<SIZE>& text, const char* what) const {
    text << what << "\nThread name: " << _name.c_str() << ".\nThread id: " << currentThreadId() << ".";
}

void LoggingThreadImpl::log(const char* text) const noexcept {
    if (_log == nullptr) {
        return;
    }
    try {
        _log->log(text);
    } catch (...) {
        // What escaped may well have been exhausted memory; the check that follows reports it without any.
    }
}

}  // namespace platform::thread
