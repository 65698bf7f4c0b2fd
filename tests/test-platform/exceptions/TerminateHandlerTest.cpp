#include "exceptions/TerminateHandler.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "support/FailedCheck.h"

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
            std::thread([] { throw 1; }).join();
        },
        testing::ExitedWithCode(7), "");
}

TEST(TerminateHandlerTest, OneHandlerAtATimeAndTheRoutineOfBeforeComesBack) {
    const std::terminate_handler before = std::get_terminate();
    for (int round = 0; round < 2; ++round) {
        ExitingHandler handler;
        handler.install();
        { ExitingHandler neverInstalled; }
        EXPECT_NE(std::get_terminate(), before);
    }
    EXPECT_EQ(std::get_terminate(), before);
    EXPECT_EQ(support::failedCheck([] {
                  ExitingHandler first;
                  first.install();
                  ExitingHandler().install();
              }),
              "current == 0 || current == this / Tried to use a new terminate handler.");
}

}  // namespace
}  // namespace exceptions
