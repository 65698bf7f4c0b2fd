#pragma once

#include "server/BadRequestException.h"

namespace halvern::morvane {

// What a valid request can get wrong about its own texts and limits. Never leaves the request's handling.
class InternalCallException final : public exceptions::WithMessage<BadRequestException> {
public:
    using WithMessage::WithMessage;
};

}  // namespace halvern::morvane
