#pragma once

#include <atomic>
#include <exception>

namespace exceptions {

// What the process does last when an exception finds no handler.
//
// The run time knows one routine for all threads, so at most one handler is current. Any thread may install
// it; it must outlive all threads that may end this way.
class TerminateHandler {
public:
    TerminateHandler() = default;
    TerminateHandler(const TerminateHandler&) = delete;
    TerminateHandler& operator=(const TerminateHandler&) = delete;

    // Puts the routine back that was in force before install.
    virtual ~TerminateHandler();

    // Called on the thread that cannot go on. Must end the process.
    virtual void onTerminate() noexcept = 0;

    // Makes this handler the current one. Doing so again changes nothing; no other handler may be current.
    virtual void install();

private:
    [[noreturn]] static void terminateRoutine();

    static std::atomic<TerminateHandler*> _current;
    static std::terminate_handler _previous;  // written by whoever makes _current change from null and back
};

}  // namespace exceptions
