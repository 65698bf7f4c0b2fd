#include "server/LogImpl.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <thread>
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
    _fakes.onAvailable = [] { return 1999999; };
    _log.log("text");
    EXPECT_EQ(written(), "<Log> [Free: 1MB] text\n");
    _fakes.onAvailable = []() -> std::uint64_t { throw platform::memory::MemoryStatusException("none"); };
    _log.log("text");
    EXPECT_EQ(written(), "<Log> [Free: unknown] text\n");
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
}

TEST_F(LogImplTest, ErrorsIfToldToAndAssertionsAlwaysBringADump) {
    _log.setDumpOnError(false);
    _log.error("no dump");
    _log.assertion("a == b", "unequal", "classifier/ClassifierImpl", 4294967295);
    const std::string entries = written();
    ASSERT_EQ(_fakes.paths.size(), 1u);
    EXPECT_EQ(_fakes.paths[0].rfind("./logs/dump_threadid_" + std::to_string(gettid()) + "_time_", 0), 0u);
    for (const std::string& part : {std::string("<Error>\nno dump\n\n<Failure>\n"),
                                    std::string("Expression: a == b\nDescription: unequal\nFile: "
                                                "classifier/ClassifierImpl\nLine: 4294967295\n"),
                                    "Crash dump here: " + _fakes.paths[0] + "\n\n"}) {
        EXPECT_NE(entries.find(part), std::string::npos) << entries;
    }
    _log.setDumpOnError(true);
    _fakes.onWrite = [] { throw windows::debug::WriteDumpException("No room."); };
    _log.error("text");
    EXPECT_EQ(written(),
              "<Error>\ntext\nFailed to create dump (" + _fakes.paths.back() + ") reason: No room.\n\n");
}

TEST_F(LogImplTest, FailedFileShowsOnTheConsole) {
    _log.setToConsole(true);
    const struct {
        std::function<void()> failure;
        std::string added;
    } CASES[] = {{[] { throw io::filesystem::SaveFileExceptionImpl("Disk full."); },
                  "Error when logging: Disk full.\n"},
                 {[] {}, ""}};
    for (const auto& row : CASES) {
        _fakes.onSave = row.failure;
        testing::internal::CaptureStdout();
        _log.log("text");
        EXPECT_EQ(withoutHeads(testing::internal::GetCapturedStdout()), "<Log> text\n" + row.added);
    }
    EXPECT_EQ(written(), "<Log> text\n");
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
            TerminateHandlerImpl handler(_log);
            handler.install();
            std::thread([] { throw 1; }).join();
        },
        testing::ExitedWithCode(255), "\\[Error\\] .*\nThe termination handler was called.\n");
}

}  // namespace
}  // namespace halvern::morvane
