#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "exceptions/IllegalArgumentException.h"
#include "support/FailedCheck.h"
#include "util/FixedStream.h"
#include "util/StringStream.h"

namespace {

TEST(StreamsTest, FixedOneCutsSilentlyAtItsCapacityAndStaysThere) {
    for (const std::size_t length : {0U, 127U, 128U, 129U}) {
        util::FixedStream<128> stream;
        stream << std::string(length, 'x').c_str() << "tail" << 12345;
        EXPECT_EQ(std::string(stream.str()), (std::string(length, 'x') + "tail12345").substr(0, 128));
    }
    util::FixedStream<128> stream;
    stream << INT64_MIN << " " << UINT64_MAX << " ";
    stream.appendSystemError(ENOENT);
    EXPECT_STREQ(stream.str(),
                 "-9223372036854775808 18446744073709551615 "
                 "System error message: No such file or directory. Error code: 2.");
    stream.setPosition(4);
    EXPECT_STREQ(stream.str(), "-922");
}

TEST(StreamsTest, GrowingOneCrossesItsInlineBufferWithoutLosingText) {
    for (const std::size_t first : {0U, 2046U, 2047U, 2048U, 10000U}) {
        util::StringStream<2048> stream;
        stream << std::string(first, 'a') << "b" << 7;
        std::string expected = std::string(first, 'a') + "b7";
        for (int i = 0; i < 3; ++i) {
            stream << stream.str();  // also while it grows
            expected += expected;
        }
        EXPECT_EQ(stream.str(), expected);
        util::StringStream<2048> other;
        stream.swap(other);
        EXPECT_EQ(other.str(), expected);
    }
}

TEST(StreamsTest, ExceptionKeepsAtMost4095CharactersAndSurvivesCopying) {
    for (const std::size_t length : {4095U, 4096U}) {
        const exceptions::IllegalArgumentException original(std::string(length, 'm'));
        const exceptions::IllegalArgumentException copy = original;  // NOLINT: the copy is what is tested
        EXPECT_EQ(std::string(copy.what()), std::string(4095, 'm'));
    }
}

TEST(AssertionDeathTest, EveryFailureIsAppendedToTheReportFile) {
    const support::TempDir folder;
    EXPECT_EQ(support::failedCheck([] { CHECK(1 + 1 == 3, "Arithmetic is broken"); }, folder),
              "1 + 1 == 3 / Arithmetic is broken");
    support::failedCheck([] { CHECK(2 + 2 == 5); }, folder);
    const std::string report = support::readFile(folder.file("assertion.txt"));
    EXPECT_NE(report.find("\nFile: tests/test-platform/util/StreamsTest\nLine: "), std::string::npos);
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
    EXPECT_EQ(support::failedCheck([] {
                  useUpTheHeap();
                  CHECK(false, "No memory left");
              }),
              "false / No memory left");
}

}  // namespace
