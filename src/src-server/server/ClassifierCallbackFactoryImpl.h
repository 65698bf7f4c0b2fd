#pragma once

#include "classifier/Callback.h"
#include "server/Log.h"

namespace halvern::morvane {

// Brings the failures inside a classifier to the log, which writes a dump; the classifier then goes on.
class ClassifierCallbackImpl final : public classifier::Callback {
public:
    explicit ClassifierCallbackImpl(Log& log) : _log(log) {}

    void report(const char* expression, const char* description, const char* file,
                std::uint32_t line) override;
    std::unique_ptr<classifier::Callback> clone() const override;

private:
    Log& _log;
};

class ClassifierCallbackFactoryImpl final : public classifier::CallbackFactory {
public:
    explicit ClassifierCallbackFactoryImpl(Log& log) : _log(log) {}

    std::unique_ptr<classifier::Callback> create() override;

private:
    Log& _log;
};

}  // namespace halvern::morvane
