#include "windows/debug/ReportHook.h"

#include <gtest/gtest.h>

#include "debug/Assertion.h"
#include "support/FailedCheck.h"

namespace windows::debug {
namespace {

// Leaves what it was told where the reports are, and breaks a promise of its own on the way.
class FailingHook final : public ReportHook {
public:
    void report(const char* message) noexcept override {
        support::writeFile("hook.txt", message);
        CHECK(false, "in the hook");
    }
};

TEST(ReportHookTest, FailedCheckReachesTheHookOnceBeforeTheProcessEnds) {
    const support::TempDir directory;
    EXPECT_EQ(support::failedCheck(
                  [] {
                      FailingHook hook;
                      ReportHook::setCurrent(hook);
                      CHECK(false, "in the program");
                  },
                  directory),
              "false / in the program");
    EXPECT_NE(support::readFile(directory.file("hook.txt")).find("Description: in the program\n"),
              std::string::npos);
    const std::string reports = support::readFile(directory.file("assertion.txt"));
    EXPECT_LT(reports.find("in the program"), reports.find("in the hook")) << reports;
    EXPECT_EQ(reports.find("in the hook"), reports.rfind("in the hook")) << reports;
}

TEST(ReportHookTest, ThereIsOneAtATime) {
    FailingHook hook;
    ReportHook::setCurrent(hook);
    ReportHook::releaseCurrent();
    ReportHook::reportToCurrent("nobody hears this");
    EXPECT_EQ(support::failedCheck([] { ReportHook::releaseCurrent(); }),
              "_current != 0 / Trying to release a debug report hook thas has not been setup!");
    EXPECT_EQ(support::failedCheck([&] {
                  ReportHook::setCurrent(hook);
                  ReportHook::setCurrent(hook);
              }),
              "_current == 0 / A debug report hook has already been setup!");
}

}  // namespace
}  // namespace windows::debug
