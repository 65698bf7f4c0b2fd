#include "exceptions/TerminateHandler.h"

#include <cstdlib>

#include "debug/Assertion.h"

namespace exceptions {

std::atomic<TerminateHandler*> TerminateHandler::_current = nullptr;
std::terminate_handler TerminateHandler::_previous = nullptr;

TerminateHandler::~TerminateHandler() {
    if (_current == this) {
        std::set_terminate(_previous);
        _previous = nullptr;
        _current = nullptr;
    }
}

void TerminateHandler::install() {
    TerminateHandler* current = nullptr;
    if (_current.compare_exchange_strong(current, this)) {
        _previous = std::set_terminate(&TerminateHandler::terminateRoutine);
    }
    // NOLINTNEXTLINE(modernize-use-nullptr): the report shows the condition as it stands here
    CHECK(current == 0 || current == this, "Tried to use a new terminate handler.");
}

void TerminateHandler::terminateRoutine() {
    if (TerminateHandler* handler = _current) {
        handler->onTerminate();
    }
    std::abort();
}

}  // namespace exceptions
