#include "exceptions/TerminateHandler.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

namespace {

class ExitingHandler final : public exceptions::TerminateHandler {
public:
    void onTerminate() noexcept override { _exit(7); }
};

TEST(TerminateHandlerTest, ExceptionThatNoThreadCatchesReachesTheHandler) {
    const auto fail = [] {
        ExitingHandler handler;
        handler.install();
        { const ExitingHandler neverInstalled; }
        std::thread([] { throw 1; }).join();
    };
    EXPECT_EXIT(fail(), testing::ExitedWithCode(7), "");
}

}  // namespace
