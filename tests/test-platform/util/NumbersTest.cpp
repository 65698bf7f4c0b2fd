#include "util/Numbers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "exceptions/NumberFormatException.h"
#include "support/Failure.h"
#include "util/Converter.h"

TEST(NumbersTest, AnIntegerIsReadOrRefusedWithItsReason) {
    constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t greatest = std::numeric_limits<std::int64_t>::max();
    const struct {
        const char* text;
        std::int64_t minimum;
        std::int64_t maximum;
        const char* expected;
    } cases[] = {
        {" \t\n+12abc", 0, 12, "12"},
        {"-3", -3, 3, "-3"},
        {"010", 0, 10, "10"},
        {"9999999999999999999999", least, greatest, "9223372036854775807"},
        {"", 0, 10, "The empty string cannot be parsed into an integer"},
        {" -", -5, 10, "Error parsing the string [ -] to a number"},
        {"4", 5, 10, "Error converting [4] to a number. The number is too small."},
        {"11 ", 5, 10, "Error converting [11 ] to a number. The number is too large."},
    };
    for (const auto& row : cases) {
        std::int64_t number = 0;
        const std::string failure = support::failureOf<exceptions::NumberFormatException>(
            [&] { number = util::toInteger(row.text, row.minimum, row.maximum); });
        EXPECT_EQ(failure == "no failure" ? std::to_string(number) : failure, row.expected);
    }
}

TEST(NumbersTest, ADoubleIsReadAsTheCompilerReadsItOrRefusedWithItsReason) {
    EXPECT_EQ(util::toDouble(" -2.5e-3xyz"), -2.5e-3);
    EXPECT_EQ(util::toDouble("1,5"), 1.0);
    EXPECT_EQ(util::toDouble("4.9406564584124654e-324"), std::numeric_limits<double>::denorm_min());
    const char* const refused[][2] = {
        {"", "Error parsing the string [] to a double."},
        {"1e-5000", "Error parsing the string [1e-5000] to a double."},
        {"-1e5000", "Overflow when converting [-1e5000] to a double. "},
    };
    for (const auto& [text, reason] : refused) {
        EXPECT_EQ(support::failureOf([text = text] { util::toDouble(text); }), reason);
    }
    EXPECT_EQ(util::Converter::toUnsigned32(4294967295u), 4294967295u);
    EXPECT_EQ(
        support::failureOf([] { util::Converter::toUnsigned32(4294967296u); }),
        "Conversion failed. The supplied number, 4294967296, is larger than the max value, 4294967295 of the "
        "destination type.");
    EXPECT_THROW(util::Converter::toSigned32(2147483648u), util::ConverterException);
}
