#pragma once

#include "exceptions/Exception.h"

namespace platform::mutex {

// A lock could not be made, taken or given back.
class MutexException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

}  // namespace platform::mutex
