#include "server/GeneralNumber.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace halvern::morvane {

namespace {

constexpr int DIGITS = 6;

// Rounded twice, but off by hardly more than half of the last place.
constexpr auto POWERS_OF_TEN = [] {
    std::array<double, 309> powers{};
    long double power = 1.0L;
    for (double& each : powers) {
        each = static_cast<double>(power);
        power *= 10.0L;
    }
    return powers;
}();

// Less than this needs powers that a double can't hold.
constexpr double LEAST = 1e-300;

// Six digits before the point leave 33 bits behind it, of which powers and products spoil a few. Where the
// digits that follow differ from a half by more than this, the rounding is beyond doubt.
constexpr double DOUBT = 1e-8;

char* writeWithLibrary(char* to, double value) {
    return std::to_chars(to, to + MAX_GENERAL_NUMBER, value, std::chars_format::general, DIGITS).ptr;
}

char* writePair(char* to, std::uint32_t pair) {
    static constexpr auto PAIRS = [] {
        std::array<char, 200> pairs{};
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            pairs[i] = static_cast<char>('0' + (i % 2 == 0 ? i / 20 : i / 2 % 10));
        }
        return pairs;
    }();
    std::memcpy(to, &PAIRS[std::size_t{2} * pair], 2);
    return to + 2;
}

// Writes six digits and returns the end of them without the zeros at the end.
char* writeDigits(char* to, std::uint32_t digits) {
    to = writePair(to, digits / 10000);
    to = writePair(to, digits / 100 % 100);
    to = writePair(to, digits % 100);
    while (to[-1] == '0') {
        --to;
    }
    return to;
}

}  // namespace

// An answer has a number for each class. The library is exact for any number of digits, which takes it four
// times as long as this.
char* writeGeneralNumber(char* to, double value) {
    if (!(value >= LEAST && value < 1.0)) {
        return writeWithLibrary(to, value);
    }
    // From the exponent of two follows that of ten, or one more than that.
    const int exponentOfTwo = static_cast<int>(std::bit_cast<std::uint64_t>(value) >> 52U) - 1023;
    int exponent = exponentOfTwo * 30103 / 100000;
    double scaled = value * POWERS_OF_TEN[static_cast<std::size_t>(DIGITS - 1 - exponent)];
    if (scaled < 1e5) {
        --exponent;
        scaled *= 10.0;
    }
    auto digits = static_cast<std::uint32_t>(scaled);
    const double rest = scaled - digits;
    if (std::abs(rest - 0.5) < DOUBT) {
        return writeWithLibrary(to, value);
    }
    digits += rest > 0.5 ? 1 : 0;
    if (digits == 1'000'000) {
        digits = 100'000;
        ++exponent;
    }
    if (exponent == 0) {
        *to = '1';
        return to + 1;
    }
    if (exponent >= -4) {
        std::copy_n("0.000", 5, to);
        return writeDigits(to + 1 - exponent, digits);
    }
    // The point goes between the first digit and the others, if there are any.
    char* end = writeDigits(to + 1, digits);
    to[0] = to[1];
    to[1] = '.';
    end -= end == to + 2 ? 1 : 0;
    std::copy_n("e-", 2, end);
    end += 2;
    const auto size = static_cast<std::uint32_t>(-exponent);
    if (size >= 100) {
        *end++ = static_cast<char>('0' + size / 100);
    }
    return writePair(end, size % 100);
}

}  // namespace halvern::morvane
