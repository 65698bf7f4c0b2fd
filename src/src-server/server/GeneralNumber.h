#pragma once

#include <cstddef>

namespace halvern::morvane {

// The most that writeGeneralNumber() writes: "-1.23457e-308".
constexpr std::size_t MAX_GENERAL_NUMBER = 13;

// Writes a number as printf does with "%.6g" in the C locale, without a zero byte behind it, and returns the
// end.
char* writeGeneralNumber(char* to, double value);

}  // namespace halvern::morvane
