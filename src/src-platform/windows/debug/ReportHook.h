#pragma once

namespace windows::debug {

// Whoever is to hear of a failed check before it ends the process. At most one is current.
class ReportHook {
public:
    virtual ~ReportHook() = default;

    virtual void report(const char* message) noexcept = 0;

    // Makes the hook the current one, which none may be at the moment. It must outlive all threads or be
    // released.
    static void setCurrent(ReportHook& hook);
    static void releaseCurrent();

    // Gives the message to the current hook if there is one. A check that fails in the hook itself is not
    // reported to it again.
    static void reportToCurrent(const char* message) noexcept;
};

}  // namespace windows::debug
