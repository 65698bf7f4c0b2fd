#pragma once

#include <cstdint>
#include <string>

namespace util {

// The decimal number at the start of text: leading white space and a sign are taken, and what stands behind
// the digits is ignored ("12abc" is 12). Throws exceptions::NumberFormatException if there is no number, or
// if it is below minimum or above maximum.
std::int64_t toInteger(const std::string& text, std::int64_t minimum, std::int64_t maximum);

// The floating-point number at the start of text, as strtod reads it in the POSIX locale. Throws
// exceptions::NumberFormatException if there is none, or if its magnitude is beyond what a double can hold.
double toDouble(const std::string& text);

}  // namespace util
