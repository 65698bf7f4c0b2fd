#pragma once

#include <cstdint>

namespace debug {

// Whoever wants to hear of a failure that does not end the process.
class ExtendedAssertionHandler {
public:
    virtual ~ExtendedAssertionHandler() = default;
    virtual void assertion(const char* expression, const char* description, const char* file,
                           std::uint32_t line) noexcept = 0;
};

}  // namespace debug
