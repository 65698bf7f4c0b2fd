#include "server/GeneralNumber.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace halvern::morvane {
namespace {

TEST(GeneralNumberTest, ReadsAsPrintfWritesIt) {
    using Limits = std::numeric_limits<double>;
    std::vector<double> values = {0.0, -0.0, 1e6, 123456.5, Limits::infinity(), Limits::quiet_NaN()};
    // Where the exponent, the form or the last digit changes; 5 behind the sixth digit is as good as a half.
    for (int exponent = -325; exponent <= 8; ++exponent) {
        for (const char* const digits : {"1", "9.999995", "9.99999", "1.000005", "1.5", "1.23456"}) {
            values.push_back(std::stod(digits) * std::pow(10.0L, exponent));
        }
    }
    // Exact halves among them.
    for (int exponent = -1074; exponent < 1; ++exponent) {
        values.push_back(std::ldexp(1.0, exponent));
        values.push_back(std::ldexp(111111.0, exponent));
    }
    for (std::size_t i = values.size(); i-- > 0;) {
        values.push_back(std::nextafter(values[i], 0.0));
        values.push_back(std::nextafter(values[i], 2.0));
    }
    std::mt19937_64 random(3);
    for (int i = 0; i < 50'000; ++i) {
        values.push_back(static_cast<double>(random() % 10'000'000) / 1e7);
        values.push_back(std::ldexp(static_cast<double>(random() % (1U << 22U)), -22));
        values.push_back(std::bit_cast<double>(random()));
        values.push_back(std::bit_cast<double>(random() & 0x3FFFFFFFFFFFFFFFU));
    }
    for (const double value : values) {
        char written[MAX_GENERAL_NUMBER];
        char printed[MAX_GENERAL_NUMBER + 1];
        std::snprintf(printed, sizeof(printed), "%.6g", value);
        ASSERT_EQ(std::string(written, writeGeneralNumber(written, value)), printed) << value;
    }
}

}  // namespace
}  // namespace halvern::morvane
