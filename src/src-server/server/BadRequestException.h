#pragma once

#include "exceptions/Exception.h"

namespace halvern::morvane {

// What a client's request can get wrong about classifiers. Answered with statusCode::BAD_REQUEST.
class BadRequestException : public exceptions::Exception {};

class ClassifierNotFoundException final : public exceptions::WithMessage<BadRequestException> {
public:
    using WithMessage::WithMessage;
};

class ClassifierExistsException final : public exceptions::WithMessage<BadRequestException> {
public:
    using WithMessage::WithMessage;
};

// A classifier's path that leads anywhere but directly into the root directory.
class ClassifierPathException final : public exceptions::WithMessage<BadRequestException> {
public:
    using WithMessage::WithMessage;
};

}  // namespace halvern::morvane
