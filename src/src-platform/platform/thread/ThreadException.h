#pragma once

#include "exceptions/Exception.h"

namespace platform::thread {

// A thread could not be started or waited for.
class ThreadException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

}  // namespace platform::thread
