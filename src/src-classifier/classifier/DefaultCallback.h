#pragma once

#include "classifier/Callback.h"

namespace halvern::classifier {

// The callback of a program that embeds the engine without one of its own: tells the failure on standard
// output and ends the process.
class DefaultCallback final : public Callback {
public:
    void report(const char* expression, const char* description, const char* file,
                std::uint32_t line) override;
    std::unique_ptr<Callback> clone() const override;
};

}  // namespace halvern::classifier
