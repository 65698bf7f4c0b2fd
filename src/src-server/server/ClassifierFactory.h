#pragma once

#include <memory>

namespace halvern::classifier {
class CallbackFactory;
class Classifier;
}  // namespace halvern::classifier

namespace halvern::morvane {

// Makes the server's classifiers. Shared by all connections.
class ClassifierFactory {
public:
    virtual ~ClassifierFactory() = default;

    // A new classifier without classes. It reports its failures to a callback of the factory's making.
    virtual std::unique_ptr<classifier::Classifier> create(
        classifier::CallbackFactory& callbackFactory) const = 0;
};

}  // namespace halvern::morvane
