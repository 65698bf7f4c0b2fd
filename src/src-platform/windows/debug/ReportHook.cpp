#include "windows/debug/ReportHook.h"

#include <atomic>

#include "debug/Assertion.h"

namespace windows::debug {

namespace {

std::atomic<ReportHook*> _current = nullptr;

}  // namespace

void ReportHook::setCurrent(ReportHook& hook) {
    // NOLINTNEXTLINE(modernize-use-nullptr): the report shows the condition as it stands here
    CHECK(_current == 0, "A debug report hook has already been setup!");
    _current = &hook;
}

void ReportHook::releaseCurrent() {
    // NOLINTNEXTLINE(modernize-use-nullptr): the report shows the condition as it stands here
    CHECK(_current != 0, "Trying to release a debug report hook thas has not been setup!");
    _current = nullptr;
}

void ReportHook::reportToCurrent(const char* message) noexcept {
    thread_local bool reporting = false;
    ReportHook* hook = _current;
    if (hook != nullptr && !reporting) {
        reporting = true;
        hook->report(message);
        reporting = false;
    }
}

}  // namespace windows::debug
