#include "exceptions/TerminateHandler.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>

#include "support/TempDir.h"

namespace exceptions {
namespace {

class ExitingHandler final : public TerminateHandler {
public:
    void onTerminate() noexcept override { _exit(7); }
};

TEST(TerminateHandlerTest, ExceptionThatNoThreadCatchesReachesTheHandler) {
    EXPECT_EXIT(
        {
            ExitingHandler handler;
            handler.install();
            handler.install();
            std::thread([] { throw std::runtime_error("nobody catches this"); }).join();
        },
        testing::ExitedWithCode(7), "");
}

TEST(TerminateHandlerTest, RoutineOfBeforeComesBackAndAnotherHandlerMayFollow) {
    const std::terminate_handler before = std::get_terminate();
    for (int round = 0; round < 2; ++round) {
        ExitingHandler handler;
        handler.install();
        EXPECT_NE(std::get_terminate(), before);
    }
    EXPECT_EQ(std::get_terminate(), before);
    { ExitingHandler neverInstalled; }
    EXPECT_EQ(std::get_terminate(), before);
}

TEST(TerminateHandlerTest, SecondHandlerBesideTheFirstIsAFailedCheck) {
    const support::TempDir directory;
    EXPECT_EXIT(
        {
            // The check leaves its report in the current directory and on standard output.
            ASSERT_EQ(chdir(directory.path().c_str()), 0);
            dup2(STDERR_FILENO, STDOUT_FILENO);
            ExitingHandler first;
            ExitingHandler second;
            first.install();
            second.install();
        },
        testing::KilledBySignal(SIGABRT),
        "current == 0 \\|\\| current == this\nDescription: Tried to use a new terminate handler.");
}

}  // namespace
}  // namespace exceptions
