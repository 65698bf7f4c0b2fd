#pragma once

#include "exceptions/Exception.h"

namespace exceptions {

// An operation was called with arguments that it cannot accept.
class IllegalArgumentException final : public WithMessage<RuntimeException> {
public:
    using WithMessage::WithMessage;
};

}  // namespace exceptions
