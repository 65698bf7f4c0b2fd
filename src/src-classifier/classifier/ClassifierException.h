#pragma once

#include "exceptions/Exception.h"

namespace halvern::classifier {

// What a caller of the engine can get wrong: a class that doesn't exist, data that isn't a classifier.
class ClassifierException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

}  // namespace halvern::classifier
