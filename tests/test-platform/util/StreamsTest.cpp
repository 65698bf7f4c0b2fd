#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include "exceptions/IllegalArgumentException.h"
#include "support/TempDir.h"
#include "util/DateAndTime.h"
#include "util/FixedStream.h"
#include "util/StringStream.h"

namespace {

TEST(FixedStreamTest, CutsSilentlyAtItsCapacityAndStaysThere) {
    for (const std::size_t length : {0U, 127U, 128U, 129U, 200U}) {
        util::FixedStream<128> stream;
        stream << std::string(length, 'x').c_str() << "tail" << 12345;
        const std::string whole = std::string(length, 'x') + "tail12345";
        EXPECT_EQ(std::string(stream.str()), whole.substr(0, 128)) << length;
    }
}

TEST(FixedStreamTest, WritesNumbersAndSystemErrors) {
    util::FixedStream<256> stream;
    stream << INT64_MIN << " " << UINT64_MAX << " ";
    stream.appendSystemError(ENOENT);
    EXPECT_STREQ(stream.str(),
                 "-9223372036854775808 18446744073709551615 "
                 "System error message: No such file or directory. Error code: 2.");
    stream.setPosition(4);
    EXPECT_STREQ(stream.str(), "-922");
    util::FixedStream<128> full;
    full << std::string(120, 'x').c_str();
    full.appendSystemError(ENOENT);
    EXPECT_EQ(std::string(full.str()), std::string(120, 'x') + "System e");
}

TEST(StringStreamTest, GrowsAcrossItsInlineBufferWithoutLosingText) {
    for (const std::size_t first : {0U, 2046U, 2047U, 2048U, 2049U, 10000U}) {
        util::StringStream<2048> stream;
        stream << std::string(first, 'a') << "b" << 7;
        std::string expected = std::string(first, 'a') + "b7";
        for (int i = 0; i < 3; ++i) {
            stream << stream.str();  // also while it grows
            expected += expected;
        }
        EXPECT_EQ(stream.str(), expected);
        util::StringStream<2048> other;
        other << "short";
        stream.swap(other);
        EXPECT_STREQ(stream.str(), "short");
        EXPECT_EQ(other.str(), expected);
        EXPECT_EQ(other.size(), expected.size());
        other.clear();
        EXPECT_EQ(other.size(), 0U);
        other << "again";
        EXPECT_STREQ(other.str(), "again");
    }
}

TEST(ExceptionTest, KeepsAtMost4095CharactersAndSurvivesCopying) {
    for (const std::size_t length : {0U, 4095U, 4096U, 9000U}) {
        const exceptions::IllegalArgumentException original(std::string(length, 'm'));
        const exceptions::IllegalArgumentException copy = original;  // NOLINT: the copy is what is tested
        EXPECT_EQ(std::string(copy.what()), std::string(std::min<std::size_t>(length, 4095), 'm'));
    }
}

TEST(SystemErrorTextTest, UnknownCodesTakeTheMappersWords) {
    class Mapper final : public platform::errorresources::ErrorMapper {
    public:
        Mapping map(std::int32_t code) const override {
            return code == 10061   ? Mapping{true, "Connection refused"}
                   : code == 10063 ? Mapping{true, LONG.c_str()}
                                   : Mapping{false, nullptr};
        }
        const std::string LONG = std::string(1000, 'x') + ".";
    };
    using platform::errorresources::systemErrorText;
    const Mapper mapper;
    EXPECT_EQ(systemErrorText(10061, &mapper),
              "System error message: Connection refused. Error code: 10061.");
    EXPECT_EQ(systemErrorText(10063, &mapper),
              "System error message: " + mapper.LONG + " Error code: 10063.");
    EXPECT_EQ(systemErrorText(10062, &mapper),
              "System error message: Error message not found. Error code: 10062.");
}

TEST(DateAndTimeTest, HasTheFormOfAsctime) {
    std::tm parsed{};
    const std::string now = util::DateAndTime::now().str();
    EXPECT_EQ(now.size(), 24U);
    EXPECT_NE(strptime(now.c_str(), "%a %b %e %H:%M:%S %Y", &parsed), nullptr) << now;
}

TEST(AssertionDeathTest, EveryFailureIsAppendedToTheReportFile) {
    const support::TempDir folder;
    const auto fail = [&](bool described) {
        ASSERT_EQ(chdir(folder.path().c_str()), 0);
        if (described) {
            CHECK(1 + 1 == 3, "Arithmetic is broken");
        }
        CHECK(2 + 2 == 5);
    };
    EXPECT_DEATH(fail(true), "false");
    EXPECT_DEATH(fail(false), "false");
    const std::string report = support::readFile(folder.file("assertion.txt"));
    EXPECT_NE(report.find("Assertion failed. Message: 1 + 1 == 3\nDescription: Arithmetic is broken\nFile: "
                          "tests/test-platform/util/StreamsTest\nLine: "),
              std::string::npos)
        << report;
    EXPECT_NE(report.find("Message: 2 + 2 == 5\nFile: "), std::string::npos) << report;
}

// Takes all the memory that there is. The big blocks first, or it would take for ever.
void useUpTheHeap() {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_AS, &none);
    for (std::size_t size = std::size_t{1} << 20; size > 0; size /= 2) {
        while (void* volatile block = std::malloc(size)) {
            static_cast<void>(block);
        }
    }
}

TEST(AssertionDeathTest, ReportNeedsNoMemory) {
#ifdef MORVANE_SANITIZED
    GTEST_SKIP() << "A sanitizer can't be without memory";
#endif
    const support::TempDir folder;
    const auto fail = [&] {
        ASSERT_EQ(chdir(folder.path().c_str()), 0);
        useUpTheHeap();
        CHECK(false, "No memory left");
    };
    EXPECT_EXIT(fail(), testing::KilledBySignal(SIGABRT), "");
    EXPECT_NE(support::readFile(folder.file("assertion.txt")).find("\nDescription: No memory left\nFile: "),
              std::string::npos);
}

}  // namespace
