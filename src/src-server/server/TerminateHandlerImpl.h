#pragma once

#include "exceptions/TerminateHandler.h"
#include "server/Log.h"

namespace halvern::morvane {

// Logs that an exception found no handler, and ends the process with exit code -1.
class TerminateHandlerImpl final : public exceptions::TerminateHandler {
public:
    explicit TerminateHandlerImpl(Log& log) : _log(log) {}

    [[noreturn]] void onTerminate() noexcept override;

private:
    Log& _log;
};

}  // namespace halvern::morvane
