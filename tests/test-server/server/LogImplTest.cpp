#include "server/LogImpl.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <ctime>
#include <functional>
#include <new>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "debug/Assertion.h"
#include "server/LogLevel.h"
#include "server/ReportHookImpl.h"
#include "server/TerminateHandlerImpl.h"
#include "support/TempDir.h"

namespace halvern::morvane {
namespace {

using io::filesystem::SaveFile;

// Does what it is told; tells what it was asked for.
class FakeSaveFile final : public SaveFile {
public:
    void save(const std::string& name, const util::Bytes& data, std::uint32_t mode) const override {
        if (onSave) {
            onSave();
        }
        EXPECT_EQ(name, "./logs/log.txt");
        EXPECT_EQ(mode, SaveFile::APPEND);
        content.append(data.begin(), data.end());
    }

    std::function<void()> onSave;
    mutable std::string content;
};

class FakeWriteDump final : public windows::debug::WriteDump {
public:
    void write(const std::string& path) override {
        paths.push_back(path);
        if (onWrite) {
            onWrite();
        }
    }

    std::function<void()> onWrite;
    std::vector<std::string> paths;
};

class FakeMemoryStatus final : public platform::memory::MemoryStatus {
public:
    static constexpr std::uint64_t OUT_OF_MEMORY = UINT64_MAX;

    std::uint64_t available() const override {
        if (bytes == OUT_OF_MEMORY) {
            throw std::bad_alloc();
        }
        if (bytes == 0) {
            throw platform::memory::MemoryStatusException("no figures");
        }
        return bytes;
    }
    std::uint64_t total() const override { return 1000 * bytes; }

    std::uint64_t bytes = 1999999;
};

class LogImplTest : public testing::Test {
protected:
    LogImplTest() {
        _log.setToFile(true);
        _log.setToConsole(false);
    }

    // What the file holds since the last call, with the head of each entry as "<Level>".
    std::string written() {
        constexpr std::size_t TIME_SIZE = 24;
        const std::string thread = " [ThreadId: " + std::to_string(gettid()) + "]";
        std::string content;
        content.swap(_saveFile.content);
        for (std::size_t end = 0; (end = content.find(thread)) != std::string::npos;) {
            const std::size_t level = content.rfind(" [", end - 1);
            if (level == std::string::npos || level < TIME_SIZE) {
                return "no head: " + content;
            }
            const std::string name = content.substr(level + 2, end - level - 3);
            const std::size_t begin = level - TIME_SIZE;
            content.replace(begin, end + thread.size() - begin, "<" + name + ">");
        }
        return content;
    }

    FakeSaveFile _saveFile;
    FakeWriteDump _writeDump;
    FakeMemoryStatus _memoryStatus;
    LogImpl _log{"./logs/log.txt", "./logs/", _saveFile, _writeDump, _memoryStatus};
};

TEST_F(LogImplTest, TextOfOneLineStandsBesideItsHeadAndALongerOneBelow) {
    const struct {
        const char* text;
        const char* log;
        const char* test;
        const char* error;
    } CASES[] = {
        {"", "<Log> \n", "<Test> \n", "<Error>\n\n\n"},
        {"one", "<Log> one\n", "<Test> one\n", "<Error>\none\n\n"},
        {"one\ntwo", "<Log>\none\ntwo\n", "<Test>\none\ntwo\n", "<Error>\none\ntwo\n\n"},
        {"\n", "<Log>\n\n\n", "<Test>\n\n\n", "<Error>\n\n\n\n"},
        {"100% %s \xff", "<Log> 100% %s \xff\n", "<Test> 100% %s \xff\n", "<Error>\n100% %s \xff\n\n"}};
    for (const auto& row : CASES) {
        _log.log(row.text);
        EXPECT_EQ(written(), row.log);
        _log.test(row.text);
        EXPECT_EQ(written(), row.test);
        _log.error(row.text);
        EXPECT_EQ(written(), row.error);
    }
    const std::string longText(10000, 'x');
    _log.log(longText);
    EXPECT_EQ(written(), "<Log> " + longText + "\n");
}

TEST_F(LogImplTest, HeadHoldsTheLocalTimeOfTheEntry) {
    const std::time_t before = std::time(nullptr);
    _log.log("text");
    const std::time_t after = std::time(nullptr);
    std::string times;
    for (std::time_t time = before; time <= after; ++time) {
        std::tm local{};
        char text[32];
        times += asctime_r(localtime_r(&time, &local), text);
    }
    EXPECT_NE(times.find(_saveFile.content.substr(0, 24) + "\n"), std::string::npos)
        << _saveFile.content << times;
}

TEST_F(LogImplTest, FreeMemoryIsInMillionsOfBytes) {
    _log.setLogMemory(true);
    const struct {
        std::uint64_t bytes;
        const char* line;
    } CASES[] = {{1999999, "<Log> [Free: 1MB] text\n"},
                 {999999, "<Log> [Free: 0MB] text\n"},
                 {24000000000, "<Log> [Free: 24000MB] text\n"},
                 {0, "<Log> [Free: unknown] text\n"},
                 {FakeMemoryStatus::OUT_OF_MEMORY, "text"}};
    for (const auto& row : CASES) {
        _memoryStatus.bytes = row.bytes;
        _log.log("text");
        EXPECT_EQ(written(), row.line);
    }
}

TEST_F(LogImplTest, LevelLetsThroughWhatMattersEnough) {
    for (std::uint32_t level = logLevel::log; level <= logLevel::test; ++level) {
        _log.setLevel(level);
        _log.log("text");
        EXPECT_EQ(written().empty(), level > logLevel::log) << level;
        _log.error("text");
        EXPECT_EQ(written().empty(), level > logLevel::error) << level;
        _log.assertion("a", "b", "c", 1);
        EXPECT_EQ(written().empty(), level > logLevel::failure) << level;
        _log.test("text");
        EXPECT_EQ(written(), "<Test> text\n") << level;
    }
    // An assertion that nobody would read of writes no dump either.
    EXPECT_EQ(_writeDump.paths.size(), 3u);
}

TEST_F(LogImplTest, ErrorBringsADumpIfToldToAndItsLineInAnyCase) {
    _log.setDumpOnError(true);
    _log.error("text");
    ASSERT_EQ(_writeDump.paths.size(), 1u);
    EXPECT_EQ(_writeDump.paths[0].rfind("./logs/dump_threadid_" + std::to_string(gettid()) + "_time_", 0),
              0u);
    EXPECT_EQ(written(), "<Error>\ntext\nDump is here: " + _writeDump.paths[0] + "\n\n");

    _writeDump.onWrite = [] { throw windows::debug::WriteDumpException("No room."); };
    _log.error("text");
    EXPECT_EQ(written(),
              "<Error>\ntext\nFailed to create dump (" + _writeDump.paths[1] + ") reason: No room.\n\n");

    _log.log("text");
    _log.test("text");
    _log.setToFile(false);
    _log.error("nobody would read this");
    EXPECT_EQ(_writeDump.paths.size(), 2u);
}

TEST_F(LogImplTest, AssertionTellsWhatFailedAndAlwaysWritesADump) {
    const std::string text =
        "<Failure>\n"
        "An assertion occurred in the Morvane server.\n"
        "This could be serious and you should contact the developer with this information.\n"
        "Expression: a == b\nDescription: unequal\nFile: classifier/ClassifierImpl\nLine: 4294967295\n\n"
        "Please send this information to support@morvane.example.\n"
        "Thank you for helping us improve our software.\n\n";
    _log.assertion("a == b", "unequal", "classifier/ClassifierImpl", 4294967295);
    ASSERT_EQ(_writeDump.paths.size(), 1u);
    EXPECT_EQ(written(), text + "Crash dump here: " + _writeDump.paths[0] + "\n\n");
    _writeDump.onWrite = [] { throw windows::debug::WriteDumpException("No room."); };
    _log.assertion("a == b", "unequal", "classifier/ClassifierImpl", 4294967295);
    EXPECT_EQ(written(),
              text + "Failed to create crash dump (" + _writeDump.paths[1] + ") reason: No room.\n\n");
}

TEST_F(LogImplTest, FailedFileShowsOnTheConsole) {
    _log.setToConsole(true);
    const struct {
        std::function<void()> failure;
        std::string added;
    } CASES[] = {{[] { throw io::filesystem::SaveFileExceptionImpl("Disk full."); },
                  "Error when logging: Disk full.\n"},
                 {[] { throw std::runtime_error("Odd."); }, "Error when logging: Odd.\n"},
                 {[] { throw 1; }, "A ... exception occured when trying to log a message.\n"},
                 {[] {}, ""}};
    for (const auto& row : CASES) {
        _saveFile.onSave = row.failure;
        testing::internal::CaptureStdout();
        _log.log("text");
        _saveFile.content = testing::internal::GetCapturedStdout();
        EXPECT_EQ(written(), "<Log> text\n" + row.added);
    }
    _log.setToConsole(false);
    testing::internal::CaptureStdout();
    _log.log("text");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(LogImplTest, EntryFromWithinTheLogIsDroppedUnlessItIsATest) {
    _log.setDumpOnError(true);
    _writeDump.onWrite = [&] {
        _log.log("log within");
        _log.error("error within");
        _log.assertion("a", "b", "c", 1);
        _log.test("test within");
        _log.log("log after test within");
    };
    _log.error("outer");
    ASSERT_EQ(_writeDump.paths.size(), 1u);
    EXPECT_EQ(written(), "<Test> test within\n<Error>\nouter\nDump is here: " + _writeDump.paths[0] + "\n\n");

    // A failure in the middle does not keep the log shut.
    _writeDump.onWrite = [] { throw std::runtime_error("unforeseen"); };
    _log.error("lost");
    _log.log("next");
    EXPECT_EQ(written(), "<Log> next\n");
}

TEST_F(LogImplTest, NewLogWritesToTheConsoleOnly) {
    LogImpl fresh("./logs/log.txt", "./logs/", _saveFile, _writeDump, _memoryStatus);
    testing::internal::CaptureStdout();
    fresh.log("early");
    fresh.error("early error");
    const std::string console = testing::internal::GetCapturedStdout();
    EXPECT_EQ(_saveFile.content, "");
    EXPECT_EQ(_writeDump.paths.size(), 0u);
    _saveFile.content = console;
    EXPECT_EQ(written(), "<Log> early\n<Error>\nearly error\n\n");
}

TEST_F(LogImplTest, EntriesOfManyThreadsStayWhole) {
    const support::TempDir directory;
    const io::filesystem::SaveFileImpl saveFile;
    LogImpl log(directory.file("log.txt"), directory.path() + "/", saveFile, _writeDump, _memoryStatus);
    log.setToConsole(false);
    log.setToFile(true);
    constexpr int THREADS = 4;
    constexpr int ENTRIES = 200;
    const std::string text(300, 'x');
    std::vector<std::thread> threads;
    threads.reserve(THREADS);
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([&] {
            for (int entry = 0; entry < ENTRIES; ++entry) {
                log.log(text);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::istringstream lines(support::readFile(directory.file("log.txt")));
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        ASSERT_EQ(line.substr(24, 18), " [Log] [ThreadId: ");
        ASSERT_EQ(line.substr(line.size() - text.size() - 2), "] " + text);
    }
    EXPECT_EQ(count, THREADS * ENTRIES);
}

// Writes to standard error, which a test that ends its process can still read.
class ErrorStreamSaveFile final : public SaveFile {
public:
    void save(const std::string&, const util::Bytes& data, std::uint32_t) const override {
        std::fwrite(data.data(), 1, data.size(), stderr);
    }
};

TEST_F(LogImplTest, EndOfTheProcessReachesTheLogFirst) {
    const support::TempDir directory;
    const ErrorStreamSaveFile saveFile;
    LogImpl log("./logs/log.txt", "./logs/", saveFile, _writeDump, _memoryStatus);
    log.setToConsole(false);
    log.setToFile(true);
    EXPECT_EXIT(
        {
            TerminateHandlerImpl handler(log);
            handler.install();
            std::thread([] { throw windows::debug::WriteDumpException("not caught"); }).join();
        },
        testing::ExitedWithCode(255), "\\[Error\\] .*\nThe termination handler was called.\n");
    EXPECT_EXIT(
        {
            // The check leaves a file in the current directory.
            if (chdir(directory.path().c_str()) == 0) {
                ReportHookImpl hook(log);
                windows::debug::ReportHook::setCurrent(hook);
                CHECK(false, "no way on");
            }
        },
        testing::KilledBySignal(SIGABRT),
        "\\[Error\\] .*\n-+\nAssertion failed. Message: false\n.*no way on");
}

}  // namespace
}  // namespace halvern::morvane
