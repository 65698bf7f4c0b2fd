#include "server/LogImpl.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <utility>

#include "server/LogLevel.h"
#include "server/ReportHookImpl.h"
#include "server/TerminateHandlerImpl.h"
#include "support/Failure.h"

namespace halvern::morvane {
namespace {

using io::filesystem::SaveFile;

// Each does what it is told, and tells what it was asked for.
struct Fakes final : SaveFile, windows::debug::WriteDump, platform::memory::MemoryStatus {
    void save(const std::string& name, const util::Bytes& data, std::uint32_t mode) const override {
        onSave();
        EXPECT_EQ(name, "./logs/log.txt");
        EXPECT_EQ(mode, SaveFile::APPEND);
        content.append(data.begin(), data.end());
    }
    void write(const std::string& path) override {
        paths.push_back(path);
        onWrite();
    }
    std::uint64_t available() const override { return onAvailable(); }
    std::uint64_t total() const override { return 0; }

    std::function<void()> onSave = [] {};
    std::function<void()> onWrite = [] {};
    std::function<std::uint64_t()> onAvailable;
    mutable std::string content;
    std::vector<std::string> paths;
};

class LogImplTest : public testing::Test {
protected:
    LogImplTest() {
        _log.setToFile(true);
        _log.setToConsole(false);
    }

    // What the file, or the given text, holds since the last call, with the head of each entry as "<Level>".
    std::string written() { return withoutHeads(std::exchange(_fakes.content, "")); }
    static std::string withoutHeads(std::string content) {
        constexpr std::size_t TIME_SIZE = 24;
        const std::string thread = "] [ThreadId: " + std::to_string(gettid()) + "]";
        for (std::size_t end = 0; (end = content.find(thread)) != std::string::npos;) {
            const std::size_t level = content.rfind(" [", end);
            if (level == std::string::npos || level < TIME_SIZE) {
                return "no head: " + content;
            }
            content.replace(end, thread.size(), ">").replace(level - TIME_SIZE, TIME_SIZE + 2, "<");
        }
        return content;
    }

    Fakes _fakes;
    LogImpl _log{"./logs/log.txt", "./logs/", _fakes, _fakes, _fakes};
};

TEST_F(LogImplTest, TextOfOneLineStandsBesideItsHeadAndALongerOneBelow) {
    const struct {
        std::string text;
        std::string log;
        std::string error;
    } CASES[] = {{"", " \n", "\n\n\n"},
                 {"one", " one\n", "\none\n\n"},
                 {"one\ntwo", "\none\ntwo\n", "\none\ntwo\n\n"},
                 {"100% %s \xff", " 100% %s \xff\n", "\n100% %s \xff\n\n"}};
    const std::time_t begin = std::time(nullptr);
    for (const auto& row : CASES) {
        _log.log(row.text);
        EXPECT_TRUE(support::beginsWithATimeSince(begin, _fakes.content)) << _fakes.content;
        _log.test(row.text);
        _log.error(row.text);
        EXPECT_EQ(written(), "<Log>" + row.log + "<Test>" + row.log + "<Error>" + row.error);
    }
}

TEST_F(LogImplTest, FreeMemoryIsInMillionsOfBytes) {
    _log.setLogMemory(true);
    const struct {
        std::function<std::uint64_t()> answer;
        const char* line;
    } CASES[] = {
        {[] { return 1999999; }, "<Log> [Free: 1MB] text\n"},
        {[]() -> std::uint64_t { throw platform::memory::MemoryStatusException("no figures"); },
         "<Log> [Free: unknown] text\n"},
        {[]() -> std::uint64_t { throw std::bad_alloc(); }, "text"},
    };
    for (const auto& row : CASES) {
        _fakes.onAvailable = row.answer;
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
    // What nobody would read of brings no dump either.
    EXPECT_EQ(_fakes.paths.size(), 3u);
    _log.setLevel(logLevel::log);
    _log.setToFile(false);
    _log.setDumpOnError(true);
    _log.error("text");
    EXPECT_EQ(_fakes.paths.size(), 3u);
}

TEST_F(LogImplTest, ErrorsIfToldToAndAssertionsAlwaysBringADump) {
    const std::string assertion =
        "<Failure>\n"
        "An assertion occurred in the Morvane server.\n"
        "This could be serious and you should contact the developer with this information.\n"
        "Expression: a == b\nDescription: unequal\nFile: classifier/ClassifierImpl\nLine: 4294967295\n\n"
        "Please send this information to support@morvane.example.\n"
        "Thank you for helping us improve our software.\n\n";
    for (const std::string reason : {"", "No room."}) {
        _fakes.onWrite = [&] {
            if (!reason.empty()) {
                throw windows::debug::WriteDumpException(reason);
            }
        };
        const auto outcome = [&](const std::string& success, const std::string& failure) {
            const std::string& path = _fakes.paths.back();
            EXPECT_EQ(path.rfind("./logs/dump_threadid_" + std::to_string(gettid()) + "_time_", 0), 0u);
            return (reason.empty() ? success + path : failure + path + ") reason: No room.") + "\n\n";
        };
        _log.setDumpOnError(false);
        _log.assertion("a == b", "unequal", "classifier/ClassifierImpl", 4294967295);
        EXPECT_EQ(written(), assertion + outcome("Crash dump here: ", "Failed to create crash dump ("));
        _log.setDumpOnError(true);
        _log.log("no dump");
        _log.error("text");
        EXPECT_EQ(written(),
                  "<Log> no dump\n<Error>\ntext\n" + outcome("Dump is here: ", "Failed to create dump ("));
    }
    EXPECT_EQ(_fakes.paths.size(), 4u);
}

TEST_F(LogImplTest, FailedFileShowsOnTheConsole) {
    _log.setToConsole(true);
    const struct {
        std::function<void()> failure;
        std::string added;
    } CASES[] = {{[] { throw io::filesystem::SaveFileExceptionImpl("Disk full."); },
                  "Error when logging: Disk full.\n"},
                 {[] { throw 1; }, "A ... exception occured when trying to log a message.\n"},
                 {[] {}, ""}};
    for (const auto& row : CASES) {
        _fakes.onSave = row.failure;
        testing::internal::CaptureStdout();
        _log.log("text");
        EXPECT_EQ(withoutHeads(testing::internal::GetCapturedStdout()), "<Log> text\n" + row.added);
    }
    testing::internal::CaptureStdout();
    _log.setToConsole(false);
    _log.log("not to be seen");
    LogImpl("./logs/log.txt", "./logs/", _fakes, _fakes, _fakes).error("of a new log");
    EXPECT_EQ(withoutHeads(testing::internal::GetCapturedStdout()), "<Error>\nof a new log\n\n");
    EXPECT_EQ(written(), "<Log> text\n<Log> not to be seen\n");
}

TEST_F(LogImplTest, EntryFromWithinTheLogIsDroppedUnlessItIsATest) {
    _log.setDumpOnError(true);
    _fakes.onWrite = [&] {
        _log.log("log within");
        _log.error("error within");
        _log.assertion("a", "b", "c", 1);
        _log.test("test within");
        _log.log("log after test within");
    };
    _log.error("outer");
    ASSERT_EQ(_fakes.paths.size(), 1u);
    EXPECT_EQ(written(), "<Test> test within\n<Error>\nouter\nDump is here: " + _fakes.paths[0] + "\n\n");

    // A failure in the middle does not keep the log shut.
    _fakes.onWrite = [] { throw std::runtime_error("unforeseen"); };
    _log.error("lost");
    _log.log("next");
    EXPECT_EQ(written(), "<Log> next\n");
}

TEST_F(LogImplTest, EndOfTheProcessReachesTheLogFirst) {
    ReportHookImpl(_log).report("failed check");
    EXPECT_EQ(written(), "<Error>\nfailed check\n\n");
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            _log.setToConsole(true);
            TerminateHandlerImpl(_log).onTerminate();
        },
        testing::ExitedWithCode(255), "\\[Error\\] .*\nThe termination handler was called.\n");
}

}  // namespace
}  // namespace halvern::morvane
