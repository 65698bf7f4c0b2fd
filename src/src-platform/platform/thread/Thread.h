#pragma once

#include <cstdint>
#include <string>

namespace platform::thread {

class Startable {
public:
    virtual ~Startable() = default;
    virtual void start() = 0;
};

class Joinable {
public:
    virtual ~Joinable() = default;

    // Waits for the end of the thread, for at most that long. False if it has not ended by then, and at once
    // for a thread that was never started or has been joined.
    virtual bool join(std::uint64_t milliseconds) = 0;

    // Waits for the end of the thread without limit. Does nothing for a thread that was never started or has
    // been joined.
    virtual void join() = 0;
};

class IsCurrentable {
public:
    virtual ~IsCurrentable() = default;

    // Whether the calling thread is this thread.
    virtual bool isCurrent() const = 0;
};

// A thread of the system, which runs once: created, started, joined. It may die only before its start or
// after its join.
//
// isCurrent is safe from any thread. start and join must not race each other; the new thread itself may hand
// the object to whoever joins it as soon as it runs.
class Thread : public Startable, public Joinable, public IsCurrentable {
public:
    // The name under which the thread appears in the log; to be set before the start.
    virtual void setName(const std::string& name) = 0;
    virtual std::string getName() const = 0;
};

}  // namespace platform::thread
