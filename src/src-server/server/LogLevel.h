#pragma once

#include <cstdint>
#include <string>

#include "exceptions/Exception.h"

// How much a log line matters, from 0 (most lines) to 3 (fewest).
namespace halvern::morvane::logLevel {

inline constexpr std::uint32_t log = 0;
inline constexpr std::uint32_t error = 1;
inline constexpr std::uint32_t failure = 2;
inline constexpr std::uint32_t test = 3;

class LogLevelException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

// The level that a word of the configuration names, in any case. Throws LogLevelException for any other word.
std::uint32_t fromString(const std::string& text);

// The name of a level in a log line. Throws LogLevelException for a number above 3.
const char* toString(std::uint32_t level);

}  // namespace halvern::morvane::logLevel
