#pragma once

#include <pthread.h>

#include "exceptions/Exception.h"

namespace platform::event {

// An event could not be made, set, reset or waited for.
class EventException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

// A gate for threads: once set, it stays open for all until it is reset. Each operation throws EventException
// if the system refuses.
class Event {
public:
    virtual ~Event() = default;
    virtual void set() = 0;
    virtual void reset() = 0;
    // Waits without limit while the gate is closed.
    virtual void wait() = 0;
};

// Closed when new.
class EventImpl final : public Event {
public:
    EventImpl();
    EventImpl(const EventImpl&) = delete;
    EventImpl& operator=(const EventImpl&) = delete;
    ~EventImpl() override;

    void set() override;
    void reset() override;
    void wait() override;

private:
    class Locked;

    pthread_mutex_t _mutex;
    pthread_cond_t _opened;
    bool _isSet = false;  // guarded by _mutex
};

}  // namespace platform::event
