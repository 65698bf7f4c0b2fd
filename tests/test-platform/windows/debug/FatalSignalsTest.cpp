#include "windows/debug/FatalSignals.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>

#include "platform/thread/LoggingThreadFactoryImpl.h"
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

[[gnu::noinline]] void dividesByZero() {
    volatile int zero = 0;
    volatile int one = 1;
    volatile int result = one / zero;
    static_cast<void>(result);
}

[[gnu::noinline]] void aborts() { std::abort(); }

[[gnu::noinline]] void executesNonsense() { asm volatile("ud2"); }

[[gnu::noinline]] void readsBehindTheEndOfAMappedFile() {
    char name[] = "mapped-XXXXXX";
    const int file = mkstemp(name);
    const auto* page = static_cast<volatile char*>(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0));
    static_cast<void>(*page);
}

[[gnu::noinline]] int usesUpItsStack(int depth) {
    volatile char block[1000];
    block[0] = static_cast<char>(depth);
    return depth == 0 ? 0 : usesUpItsStack(depth - 1) + block[0];
}

[[gnu::noinline]] void overflowsInAThread() {
    std::thread([] {
        const windows::seh::ScopedSignalStack stack;
        usesUpItsStack(1 << 30);
    }).join();
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

[[gnu::noinline]] void isKilledFromOutside() {
    kill(getpid(), SIGSEGV);
    // Keeps the call from becoming the end of this function, which would then be missing from the stack.
    asm volatile("" ::: "memory");
}

namespace {

struct Files {
    std::string dump;
    std::string dumpPath;
    std::string log;
};

class FatalSignalsTest : public testing::Test {
protected:
    void SetUp() override {
#ifdef MORVANE_SANITIZED
        GTEST_SKIP() << "The sanitizer reports fatal signals itself";
#endif
    }

    // In a child of the test: there is no way back.
    void crash(void (*how)()) const {
        std::filesystem::current_path(_directory.path());
        const MiniDumpImpl miniDump("Test 1.0");
        const windows::seh::SehExceptionMapperImpl mapper;
        const FatalSignals signals(miniDump, mapper, "./", "./log.txt");
        how();
    }

    Files files() const {
        Files result;
        result.log = support::readFile(_directory.file("log.txt"));
        for (const auto& entry : std::filesystem::directory_iterator(_directory.path())) {
            if (entry.path().extension() == ".dmp") {
                EXPECT_EQ(result.dumpPath, "") << "more than one dump";
                result.dumpPath = "./" + entry.path().filename().string();
                result.dump = support::readFile(entry.path().string());
            }
        }
        return result;
    }

    const support::TempDir _directory;
};

TEST_F(FatalSignalsTest, CrashLeavesADumpAndALogEntryAndEndsInItsSignal) {
    const struct {
        void (*how)();
        int signal;
        const char* function;
        const char* words;
    } CASES[] = {
        {readsThroughNull, SIGSEGV, "readsThroughNull",
         "Address: 0x0. The thread tried to read from or write to"},
        {callsNull, SIGSEGV, "callsNull", "(EXCEPTION_ACCESS_VIOLATION)"},
        {dividesByZero, SIGFPE, "dividesByZero", "(EXCEPTION_INT_DIVIDE_BY_ZERO)"},
        {aborts, SIGABRT, "aborts", "Sent by the process: "},
        {executesNonsense, SIGILL, "executesNonsense", "(EXCEPTION_ILLEGAL_INSTRUCTION)"},
        {readsBehindTheEndOfAMappedFile, SIGBUS, "readsBehindTheEndOfAMappedFile",
         "(EXCEPTION_IN_PAGE_ERROR)"},
        {overflowsInAThread, SIGSEGV, "usesUpItsStack", "(EXCEPTION_STACK_OVERFLOW)"},
        {readsThroughNullInANamedThread, SIGSEGV, "readsThroughNull",
         "A SEH exception occurred in one of the running threads.\nThread name: worker.\nThread id: "},
        {isKilledFromOutside, SIGSEGV, "isKilledFromOutside", "Sent by the process: "},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.function);
        EXPECT_EXIT(crash(row.how), testing::KilledBySignal(row.signal),
                    "The process was ended by the signal SIG");
        const Files files = this->files();
        const std::string cause = std::string("The process was ended by the signal SIG") +
                                  sigabbrev_np(row.signal) + ". Signal code: ";
        EXPECT_EQ(files.dump.rfind("Cause: " + cause, 0), 0u) << files.dump;
        const std::size_t stack = files.dump.find("\nStack:\n#0 ");
        ASSERT_NE(stack, std::string::npos) << files.dump;
        const std::string frames = files.dump.substr(stack, files.dump.find("\nMemory map:\n") - stack);
        EXPECT_NE(frames.find(row.function), std::string::npos) << frames;
        EXPECT_EQ(frames.find("onSignal"), std::string::npos) << frames;
        EXPECT_NE(files.dump.find("\nRegisters:\nrip 0x"), std::string::npos) << files.dump;
        EXPECT_NE(files.dump.find("[stack]"), std::string::npos) << files.dump;
        EXPECT_LT(files.dump.size(), 256u * 1024);

        EXPECT_NE(files.log.find(cause), std::string::npos) << files.log;
        EXPECT_NE(files.log.find(row.words), std::string::npos) << files.log;
        EXPECT_THAT(files.log,
                    testing::ContainsRegex(
                        "^[A-Z][a-z]{2} [A-Z][a-z]{2} [ 1-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9] "
                        "[0-9]{4} \\[Failure\\] \\[ThreadId: [0-9]+\\]\n"));
        const std::string end = "\nDump is here: " + files.dumpPath + "\n\n";
        EXPECT_EQ(files.log.substr(files.log.size() - std::min(files.log.size(), end.size())), end);
        std::filesystem::remove(_directory.file(files.dumpPath));
        std::filesystem::remove(_directory.file("log.txt"));
    }
}

TEST_F(FatalSignalsTest, TimeInTheEntryIsThatOfTheLog) {
    setenv("TZ", "XYZ-5:30", 1);
    tzset();
    const std::time_t before = std::time(nullptr);
    EXPECT_EXIT(crash(aborts), testing::KilledBySignal(SIGABRT), "");
    const std::time_t after = std::time(nullptr);
    std::string times;
    for (std::time_t time = before; time <= after; ++time) {
        char text[64];
        std::tm local{};
        localtime_r(&time, &local);
        std::strftime(text, sizeof(text), "%a %b %e %H:%M:%S %Y\n", &local);
        times += text;
    }
    unsetenv("TZ");
    tzset();
    EXPECT_NE(times.find(files().log.substr(0, 24) + "\n"), std::string::npos) << times << files().log;
}

TEST_F(FatalSignalsTest, FullFolderGetsAnEntryButNoDump) {
    for (std::uint64_t i = 0; i < MAX_DUMPS; ++i) {
        support::writeFile(_directory.file(std::to_string(i) + ".dmp"), "");
    }
    EXPECT_EXIT(crash(readsThroughNull), testing::KilledBySignal(SIGSEGV), "");
    const std::string log = support::readFile(_directory.file("log.txt"));
    EXPECT_NE(log.find("\nFailed to create dump (./dump_threadid_"), std::string::npos) << log;
    EXPECT_NE(log.find(".dmp) reason: The directory './' already holds 100 dumps."), std::string::npos)
        << log;
}

TEST_F(FatalSignalsTest, ThreadsThatCrashTogetherLeaveOneReport) {
    EXPECT_EXIT(crash([] {
                    std::thread others[4];
                    for (std::thread& other : others) {
                        other = std::thread([] { readsThroughNull(); });
                    }
                    for (std::thread& other : others) {
                        other.join();
                    }
                }),
                testing::KilledBySignal(SIGSEGV), "");
    const Files files = this->files();
    EXPECT_NE(files.dump.find("readsThroughNull"), std::string::npos);
    EXPECT_EQ(files.log.find("The process was ended"), files.log.rfind("The process was ended")) << files.log;
}

TEST_F(FatalSignalsTest, SignalsAreTheOldOnesAgainAfterwards) {
    struct sigaction before {};
    struct sigaction after {};
    sigaction(SIGSEGV, nullptr, &before);
    {
        const MiniDumpImpl miniDump("Test 1.0");
        const windows::seh::SehExceptionMapperImpl mapper;
        const FatalSignals signals(miniDump, mapper, "./", "./log.txt");
        sigaction(SIGSEGV, nullptr, &after);
        EXPECT_NE(after.sa_sigaction, before.sa_sigaction);
    }
    sigaction(SIGSEGV, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler);
}

}  // namespace
}  // namespace windows::debug
