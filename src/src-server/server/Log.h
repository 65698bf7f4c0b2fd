#pragma once

#include <cstdint>
#include <string>

#include "debug/ExtendedAssertionHandler.h"

namespace halvern::morvane {

// The one log of the process, for whoever reads it at night.
//
// Any thread may call any operation at any time; none of them throws. The forms that take terminated strings
// make a string of them, and end quietly where memory does not suffice for that.
class Log : public debug::ExtendedAssertionHandler {
public:
    void assertion(const char* expression, const char* description, const char* file,
                   std::uint32_t line) noexcept override;

    // What happens in the normal course of things.
    virtual void log(const std::string& text) noexcept = 0;
    virtual void log(const char* text) noexcept;

    // A failure that somebody should look at. May bring a crash dump with it.
    virtual void error(const std::string& text) noexcept = 0;
    virtual void error(const char* text) noexcept;

    // Progress and result of the built-in test. Written at every level.
    virtual void test(const std::string& text) noexcept = 0;
    virtual void test(const char* text) noexcept;

    // A failure inside the engine that did not stop it. Always brings a crash dump with it.
    virtual void assertion(const std::string& expression, const std::string& description,
                           const std::string& file, std::uint32_t line) noexcept = 0;
};

}  // namespace halvern::morvane
