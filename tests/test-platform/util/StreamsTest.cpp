#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "debug/Assertion.h"
#include "support/FailedCheck.h"
#include "util/FixedStream.h"
#include "util/StringStream.h"
#include "windows/debug/ReportHook.h"

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

// Leaves what it was told where the reports are, and breaks a promise of its own on the way.
class FailingHook final : public windows::debug::ReportHook {
public:
    void report(const char* message) noexcept override {
        support::writeFile("hook.txt", message);
        CHECK(false, "in the hook");
    }
};

TEST(AssertionTest, FailedCheckIsAppendedToTheReportsAndReachesTheHookOnce) {
    const support::TempDir folder;
    support::failedCheck([] { CHECK(2 + 2 == 5); }, folder);
    support::failedCheck(
        [] {
            FailingHook hook;
            FailingHook::setCurrent(hook);
            CHECK(false, "in the program");
        },
        folder);
    const std::string report = support::readFile(folder.file("assertion.txt"));
    EXPECT_THAT(report,
                testing::HasSubstr("Message: 2 + 2 == 5\nFile: tests/test-platform/util/StreamsTest\n"));
    EXPECT_EQ(report.find("in the hook"), report.rfind("in the hook")) << report;
    EXPECT_THAT(support::readFile(folder.file("hook.txt")), testing::HasSubstr("in the program\n"));
}

}  // namespace
