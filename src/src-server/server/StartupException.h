#pragma once

#include "exceptions/Exception.h"

namespace halvern::morvane {

// The server cannot start.
class StartupException : public exceptions::Exception {};

// The command line is wrong; the usage text follows.
class ArgStartupException final : public exceptions::WithMessage<StartupException> {
public:
    using WithMessage::WithMessage;
};

// The machine is not as it must be.
class SystemStartupException final : public exceptions::WithMessage<StartupException> {
public:
    using WithMessage::WithMessage;
};

}  // namespace halvern::morvane
