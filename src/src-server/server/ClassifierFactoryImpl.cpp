#include "server/ClassifierFactoryImpl.h"

#include "classifier/ClassifierImpl.h"

namespace halvern::morvane {

std::unique_ptr<classifier::Classifier> ClassifierFactoryImpl::create(
    classifier::CallbackFactory& callbackFactory) const {
    constexpr double SMOOTHING = 0.05;
    return std::make_unique<classifier::ClassifierImpl>(&callbackFactory, SMOOTHING);
}

}  // namespace halvern::morvane
