#include "windows/debug/ReportHook.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "debug/Assertion.h"
#include "support/TempDir.h"

namespace windows::debug {
namespace {

// Tells what it was told, and breaks a promise of its own on the way.
class FailingHook final : public ReportHook {
public:
    void report(const char* message) noexcept override {
        std::fprintf(stderr, "hook: %s", message);
        CHECK(false, "in the hook");
    }
};

TEST(ReportHookTest, FailedCheckReachesTheHookOnceBeforeTheProcessEnds) {
    const support::TempDir directory;
    EXPECT_EXIT(
        {
            // The check leaves its report in the current directory, too.
            if (chdir(directory.path().c_str()) == 0) {
                FailingHook hook;
                ReportHook::setCurrent(hook);
                CHECK(false, "in the program");
            }
        },
        testing::KilledBySignal(SIGABRT), "^hook: [^:]*: false\nDescription: in the program\n");
    const std::string reports = support::readFile(directory.file("assertion.txt"));
    EXPECT_LT(reports.find("in the program"), reports.find("in the hook")) << reports;
    EXPECT_EQ(reports.find("in the hook"), reports.rfind("in the hook")) << reports;
}

TEST(ReportHookTest, ThereIsOneAtATime) {
    const support::TempDir directory;
    FailingHook hook;
    ReportHook::setCurrent(hook);
    ReportHook::releaseCurrent();
    ReportHook::reportToCurrent("nobody hears this");
    const auto inDirectory = [&](void (*operation)(FailingHook&)) {
        if (chdir(directory.path().c_str()) == 0) {
            operation(hook);
        }
    };
    EXPECT_EXIT(inDirectory([](FailingHook&) { ReportHook::releaseCurrent(); }),
                testing::KilledBySignal(SIGABRT), "");
    EXPECT_NE(
        support::readFile(directory.file("assertion.txt"))
            .find("_current != 0\nDescription: Trying to release a debug report hook thas has not been"),
        std::string::npos);
    EXPECT_EXIT(inDirectory([](FailingHook& once) {
                    ReportHook::setCurrent(once);
                    ReportHook::setCurrent(once);
                }),
                testing::KilledBySignal(SIGABRT), "");
    EXPECT_NE(support::readFile(directory.file("assertion.txt"))
                  .find("_current == 0\nDescription: A debug report hook has already been setup!"),
              std::string::npos);
}

}  // namespace
}  // namespace windows::debug
