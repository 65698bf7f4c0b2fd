#include "windows/debug/FatalSignals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <thread>
#include <vector>

#include "platform/thread/LoggingThreadFactoryImpl.h"
#include "platform/thread/ThreadImpl.h"
#include "support/Failure.h"
#include "support/TempDir.h"
#include "windows/debug/DumpFolder.h"

namespace windows::debug {

// The crashes, each in a function whose name must show up in the dump. volatile keeps the compiler from
// seeing them.
[[gnu::noinline]] void readsThroughNull() {
    int* volatile nothing = nullptr;
    static_cast<void>(*static_cast<volatile int*>(nothing));
}

[[gnu::noinline]] void callsNull() {
    void (*volatile nothing)() = nullptr;
    nothing();
    asm volatile("" ::: "memory");
}

[[gnu::noinline]] void aborts() { std::abort(); }

[[gnu::noinline]] int usesUpItsStack(int depth) {
    volatile char block[1000];
    block[0] = static_cast<char>(depth);
    return depth == 0 ? 0 : usesUpItsStack(depth - 1) + block[0];
}

[[gnu::noinline]] void overflowsInAThread() {
    class Worker final : public platform::thread::Runnable {
    public:
        void run() override { usesUpItsStack(1 << 30); }
    };
    Worker worker;
    platform::thread::ThreadImpl thread(worker);
    thread.start();
    thread.join();
}

[[gnu::noinline]] void readsThroughNullInANamedThread() {
    class Worker final : public platform::thread::Runnable {
    public:
        void run() override { readsThroughNull(); }
    } worker;
    const windows::seh::SehExceptionMapperImpl mapper;
    const auto thread = platform::thread::LoggingThreadFactoryImpl(nullptr, &mapper).create(worker);
    thread->setName("worker");
    thread->start();
    thread->join();
}

namespace {

using namespace testing;

class FatalSignalsTest : public testing::Test {
protected:
    void SetUp() override {
#ifdef MORVANE_SANITIZED
        GTEST_SKIP() << "The sanitizer reports fatal signals itself";
#endif
    }

    // In a process of its own, for there is no way back: gives the signal that ended it. Takes the log and
    // the only dump away.
    int signalOf(void (*how)()) {
        _begin = std::time(nullptr);
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            // The entry goes to standard error, too.
            if (std::freopen("/dev/null", "w", stderr) == nullptr) {
                _exit(1);
            }
            std::filesystem::current_path(_directory.path());
            const MiniDumpImpl miniDump("Test 1.0");
            const windows::seh::SehExceptionMapperImpl mapper;
            const FatalSignals signals(miniDump, mapper, "./", "./log.txt");
            how();
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        log = dump = dumpPath = "";
        for (const auto& entry : std::filesystem::directory_iterator(_directory.path())) {
            if (entry.path().filename() == "log.txt") {
                log = support::readFile(entry.path());
            } else {
                dumpPath += "./" + entry.path().filename().string();
                dump = support::readFile(entry.path());
            }
            std::filesystem::remove(entry.path());
        }
        return WTERMSIG(status);
    }

    std::string log;
    std::string dump;
    std::string dumpPath;
    const support::TempDir _directory;
    std::time_t _begin = 0;
};

TEST_F(FatalSignalsTest, CrashLeavesADumpAndALogEntryAndEndsInItsSignal) {
    const struct {
        void (*how)();
        int signal;
        const char* function;
        const char* words;
    } CASES[] = {
        {callsNull, SIGSEGV, "callsNull", "(EXCEPTION_ACCESS_VIOLATION)"},
        {aborts, SIGABRT, "aborts", "Sent by the process: "},
        {overflowsInAThread, SIGSEGV, "usesUpItsStack", "(EXCEPTION_STACK_OVERFLOW)"},
        {readsThroughNullInANamedThread, SIGSEGV, "readsThroughNull",
         "A SEH exception occurred in one of the running threads.\nThread name: worker.\nThread id: "},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.function);
        EXPECT_EQ(signalOf(row.how), row.signal);
        const std::string cause = std::string("The process was ended by the signal SIG") +
                                  sigabbrev_np(row.signal) + ". Signal code: ";
        EXPECT_THAT(dump, AllOf(StartsWith("Cause: " + cause), HasSubstr("\nRegisters:\nrip 0x"),
                                HasSubstr("[stack]"), SizeIs(Lt(256u * 1024))));
        const std::size_t stack = dump.find("\nStack:\n#0 ");
        ASSERT_NE(stack, std::string::npos) << dump;
        EXPECT_THAT(dump.substr(stack, dump.find("\nMemory map:\n") - stack),
                    AllOf(HasSubstr(row.function), Not(HasSubstr("onSignal"))));
        EXPECT_TRUE(support::beginsWithATimeSince(_begin, log)) << log;
        EXPECT_EQ(log.find(" [Failure] [ThreadId: "), 24u) << log;
        EXPECT_THAT(log, AllOf(HasSubstr(cause), HasSubstr(row.words),
                               EndsWith("\nDump is here: " + dumpPath + "\n\n")));
    }
}

TEST_F(FatalSignalsTest, FullFolderGetsAnEntryButNoDump) {
    for (std::uint64_t i = 0; i < MAX_DUMPS; ++i) {
        support::writeFile(_directory.file(std::to_string(i) + ".dmp"), "");
    }
    EXPECT_EQ(signalOf(aborts), SIGABRT);
    EXPECT_THAT(log, AllOf(HasSubstr("\nFailed to create dump (./dump_threadid_"),
                           HasSubstr(".dmp) reason: The directory './' already holds 100 dumps.")));
}

TEST_F(FatalSignalsTest, ThreadsThatCrashTogetherLeaveOneReport) {
    EXPECT_EQ(signalOf([] {
                  std::vector<std::jthread> others;
                  for (int i = 0; i < 4; ++i) {
                      others.emplace_back([] { readsThroughNull(); });
                  }
              }),
              SIGSEGV);
    EXPECT_EQ(dumpPath.find(".dmp"), dumpPath.size() - 4) << dumpPath;
    EXPECT_NE(dump.find("readsThroughNull"), std::string::npos);
    EXPECT_EQ(log.find("The process was ended"), log.rfind("The process was ended")) << log;
}

}  // namespace
}  // namespace windows::debug
