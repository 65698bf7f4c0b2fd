#include "util/Numbers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "exceptions/NumberFormatException.h"
#include "util/Converter.h"

namespace {

constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t greatest = std::numeric_limits<std::int64_t>::max();

// What an operation gives, or the text of its failure: one column for both in the table below.
template <class Failure, class Operation>
std::string outcome(const Operation& operation) {
    try {
        return std::to_string(operation());
    } catch (const Failure& failure) {
        return failure.what();
    }
}

}  // namespace

TEST(NumbersTest, AnIntegerIsReadOrRefusedWithItsReason) {
    const struct {
        const char* text;
        std::int64_t minimum;
        std::int64_t maximum;
        const char* expected;
    } cases[] = {
        {"0", 0, 10, "0"},
        {" \t\n+12abc", 0, 12, "12"},
        {"-3", -3, 3, "-3"},
        {"010", 0, 10, "10"},
        {"9999999999999999999999", least, greatest, "9223372036854775807"},
        {"", 0, 10, "The empty string cannot be parsed into an integer"},
        {"abc", 0, 10, "Error parsing the string [abc] to a number"},
        {" -", -5, 10, "Error parsing the string [ -] to a number"},
        {"4", 5, 10, "Error converting [4] to a number. The number is too small."},
        {"11 ", 5, 10, "Error converting [11 ] to a number. The number is too large."},
        {"9999999999999999999999", 0, greatest - 1,
         "Error converting [9999999999999999999999] to a number. The number is too large."},
        {"-9999999999999999999999", least + 1, 0,
         "Error converting [-9999999999999999999999] to a number. The number is too small."},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(outcome<exceptions::NumberFormatException>(
                      [&] { return util::toInteger(row.text, row.minimum, row.maximum); }),
                  row.expected)
            << row.text;
    }
}

TEST(NumbersTest, ADoubleIsReadAsTheCompilerReadsItOrRefusedWithItsReason) {
    EXPECT_EQ(util::toDouble("1.01"), 1.01);
    EXPECT_EQ(util::toDouble(" -2.5e-3xyz"), -2.5e-3);
    EXPECT_EQ(util::toDouble("0.0"), 0.0);
    EXPECT_EQ(util::toDouble("1,5"), 1.0);
    EXPECT_EQ(util::toDouble("4.9406564584124654e-324"), std::numeric_limits<double>::denorm_min());
    const char* const refused[][2] = {
        {"", "Error parsing the string [] to a double."},
        {"one", "Error parsing the string [one] to a double."},
        {"1e-5000", "Error parsing the string [1e-5000] to a double."},
        {"-1e5000", "Overflow when converting [-1e5000] to a double. "},
    };
    for (const auto& [text, reason] : refused) {
        EXPECT_EQ(outcome<exceptions::NumberFormatException>([&] { return util::toDouble(text); }), reason);
    }
}

TEST(ConverterTest, WhatDoesNotFitIsRefused) {
    using util::Converter;
    using util::ConverterException;
    EXPECT_EQ(Converter::toUnsigned32(4294967295u), 4294967295u);
    EXPECT_EQ(Converter::toSigned32(2147483647u), 2147483647);
    EXPECT_EQ(
        outcome<ConverterException>([] { return Converter::toUnsigned32(4294967296u); }),
        "Conversion failed. The supplied number, 4294967296, is larger than the max value, 4294967295 of the "
        "destination type.");
    EXPECT_EQ(outcome<ConverterException>([] { return Converter::toSigned32(2147483648u); }),
              "Conversion failed. The supplied number, 2147483648, is larger than the max value, 2147483647 "
              "of the destination type.");
}
