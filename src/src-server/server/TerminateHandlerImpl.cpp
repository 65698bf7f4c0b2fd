#include "server/TerminateHandlerImpl.h"

#include <cstdio>
#include <cstdlib>

namespace halvern::morvane {

void TerminateHandlerImpl::onTerminate() noexcept {
    _log.error("The termination handler was called.");
    std::fflush(stdout);
    // Not exit: that would run the destructors of statics while other threads still use them.
    std::_Exit(-1);
}

}  // namespace halvern::morvane
