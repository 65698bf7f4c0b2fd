#include "windows/debug/ReportHook.h"

#include <gtest/gtest.h>

#include "debug/Assertion.h"
#include "support/FailedCheck.h"

namespace {

// Leaves what it was told where the reports are, and breaks a promise of its own on the way.
class FailingHook final : public windows::debug::ReportHook {
public:
    void report(const char* message) noexcept override {
        support::writeFile("hook.txt", message);
        CHECK(false, "in the hook");
    }
};

TEST(ReportHookTest, FailedCheckReachesTheHookOnceBeforeTheProcessEnds) {
    const support::TempDir directory;
    const auto fail = [] {
        FailingHook hook;
        FailingHook::setCurrent(hook);
        CHECK(false, "in the program");
    };
    EXPECT_EQ(support::failedCheck(fail, directory), "false / in the program");
    EXPECT_NE(support::readFile(directory.file("hook.txt")).find("Description: in the program\n"),
              std::string::npos);
    const std::string reports = support::readFile(directory.file("assertion.txt"));
    EXPECT_EQ(reports.find("in the hook"), reports.rfind("in the hook")) << reports;
}

}  // namespace
