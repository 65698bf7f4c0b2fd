#pragma once

#include "server/ClassifierFactory.h"

namespace halvern::morvane {

// Makes classifiers with the smoothing under which all of the server's classifiers were learned.
class ClassifierFactoryImpl final : public ClassifierFactory {
public:
    std::unique_ptr<classifier::Classifier> create(
        classifier::CallbackFactory& callbackFactory) const override;
};

}  // namespace halvern::morvane
