#include "server/LogLevel.h"

#include <array>

#include "util/FixedStream.h"

namespace halvern::morvane::logLevel {

namespace {

constexpr std::array<const char*, 4> LINE_NAMES = {"Log", "Error", "Failure", "Test"};
constexpr std::array<const char*, 4> CONFIGURATION_NAMES = {"log", "error", "failure", "test"};

}  // namespace

std::uint32_t fromString(const std::string& text) {
    std::string folded = text;
    for (char& c : folded) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    for (std::uint32_t level = 0; level < CONFIGURATION_NAMES.size(); ++level) {
        if (folded == CONFIGURATION_NAMES[level]) {
            return level;
        }
    }
    util::FixedStream<4096> message;
    message << "Couldn't convert the string log level " << text.c_str() << " to any existing level.";
    throw LogLevelException(message.str());
}

const char* toString(std::uint32_t level) {
    if (level < LINE_NAMES.size()) {
        return LINE_NAMES[level];
    }
    util::FixedStream<4096> message;
    message << "Couldn't convert the log level " << level << " to any existing level.";
    throw LogLevelException(message.str());
}

}  // namespace halvern::morvane::logLevel
