#include "util/Numbers.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "exceptions/NumberFormatException.h"
#include "util/FixedStream.h"

namespace util {

namespace {

[[noreturn]] void refuse(const char* before, const std::string& text, const char* after) {
    FixedStream<4096> message;
    message << before << text.c_str() << after;
    throw exceptions::NumberFormatException(message.str());
}

}  // namespace

std::int64_t toInteger(const std::string& text, std::int64_t minimum, std::int64_t maximum) {
    if (text.empty()) {
        throw exceptions::NumberFormatException("The empty string cannot be parsed into an integer");
    }
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text.c_str(), &end, 10);
    if (number == 0 && (errno != 0 || end == text.c_str())) {
        refuse("Error parsing the string [", text, "] to a number");
    }
    // What lies beyond 64 bits comes back as the greatest or least value and fails here, in any narrower
    // range.
    if (number < minimum) {
        refuse("Error converting [", text, "] to a number. The number is too small.");
    }
    if (number > maximum) {
        refuse("Error converting [", text, "] to a number. The number is too large.");
    }
    return number;
}

double toDouble(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const double number = std::strtod(text.c_str(), &end);
    if (number == 0.0 && (errno != 0 || end == text.c_str())) {
        refuse("Error parsing the string [", text, "] to a double.");
    }
    if (std::isinf(number)) {
        refuse("Overflow when converting [", text, "] to a double. ");
    }
    return number;
}

}  // namespace util
