#pragma once

#include "server/Log.h"
#include "windows/debug/ReportHook.h"

namespace halvern::morvane {

// Brings the report of a failed check to the log, which tells more about the time around it than a file of
// its own.
class ReportHookImpl final : public windows::debug::ReportHook {
public:
    explicit ReportHookImpl(Log& log) : _log(log) {}

    void report(const char* message) noexcept override { _log.error(message); }

private:
    Log& _log;
};

}  // namespace halvern::morvane
