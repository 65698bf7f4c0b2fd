#pragma once

#include "exceptions/Exception.h"

namespace exceptions {

// A text is no number, or not one in the wanted range.
class NumberFormatException final : public WithMessage<Exception> {
public:
    using WithMessage::WithMessage;
};

}  // namespace exceptions
