#include "platform/event/Event.h"

#include "debug/Assertion.h"
#include "util/FixedStream.h"

namespace platform::event {

namespace {

void throwIfFailed(int error, const char* text) {
    if (error != 0) {
        util::FixedStream<4096> message;
        message << text;
        message.appendSystemError(static_cast<std::uint32_t>(error));
        throw EventException(message.str());
    }
}

constexpr const char* createFailed = "Failed creating event object using 'CreateEvent'. ";
constexpr const char* setFailed = "Failed setting the event to signaled state using 'SetEvent'. ";
constexpr const char* resetFailed = "Failed resetting the event to non-signaled state using 'ResetEvent'. ";
constexpr const char* waitFailed = "Failed waiting for event using 'WaitForSingleObject'. ";

}  // namespace

// The system's own calls instead of the library's, since those report a failure in place of these texts.
class EventImpl::Locked {
public:
    Locked(EventImpl& event, const char* failed) : _mutex(event._mutex) {
        throwIfFailed(pthread_mutex_lock(&_mutex), failed);
    }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;
    ~Locked() { pthread_mutex_unlock(&_mutex); }

private:
    pthread_mutex_t& _mutex;
};

EventImpl::EventImpl() {
    throwIfFailed(pthread_mutex_init(&_mutex, nullptr), createFailed);
    const int error = pthread_cond_init(&_opened, nullptr);
    if (error != 0) {
        pthread_mutex_destroy(&_mutex);
    }
    throwIfFailed(error, createFailed);
}

EventImpl::~EventImpl() {
    const bool close_ret = pthread_cond_destroy(&_opened) == 0 && pthread_mutex_destroy(&_mutex) == 0;
    CHECK(close_ret);
}

void EventImpl::set() {
    const Locked locked(*this, setFailed);
    _isSet = true;
    throwIfFailed(pthread_cond_broadcast(&_opened), setFailed);
}

void EventImpl::reset() {
    const Locked locked(*this, resetFailed);
    _isSet = false;
}

void EventImpl::wait() {
    const Locked locked(*this, waitFailed);
    while (!_isSet) {
        throwIfFailed(pthread_cond_wait(&_opened, &_mutex), waitFailed);
    }
}

}  // namespace platform::event
