#pragma once

#include <cstdint>
#include <memory>

namespace halvern::classifier {

// Where a classifier reports a failure inside itself that doesn't keep it from going on.
//
// Several threads that read one classifier may report at once.
class Callback {
public:
    virtual ~Callback() = default;

    // Takes notice of a failure; the strings are valid during the call only. If report comes back, the
    // classifier goes on with its next step.
    virtual void report(const char* expression, const char* description, const char* file,
                        std::uint32_t line) = 0;

    // Makes the callback of a classifier's deep copy.
    virtual std::unique_ptr<Callback> clone() const = 0;
};

// Makes one callback for each new classifier.
class CallbackFactory {
public:
    virtual ~CallbackFactory() = default;
    virtual std::unique_ptr<Callback> create() = 0;
};

}  // namespace halvern::classifier
