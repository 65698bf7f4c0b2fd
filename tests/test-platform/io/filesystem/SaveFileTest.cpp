#include "io/filesystem/SaveFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <set>

#include "io/filesystem/Leftovers.h"
#include "support/FailingCalls.h"
#include "support/Failure.h"
#include "support/TempDir.h"

namespace io::filesystem {
namespace {

util::Bytes bytes(const std::string& text) { return util::Bytes(text.begin(), text.end()); }

std::string failureOf(const std::string& name, const std::string& text, std::uint32_t mode = 0) {
    return support::failureOf<SaveFileException>([&] { SaveFileImpl().save(name, bytes(text), mode); });
}

std::ptrdiff_t entriesOf(const std::string& directory) {
    return std::distance(std::filesystem::directory_iterator(directory), {});
}

TEST(SaveFileTest, ReplacesOrAppendsAndCreatesWhatIsMissing) {
    const support::TempDir directory;
    const struct {
        const char* name;
        std::string data;
        std::uint32_t mode;
        std::string content;
    } CASES[] = {{"classifier.dat", "a longer first content", 0, "a longer first content"},
                 {"classifier.dat", std::string("ne\0w", 4), 0, std::string("ne\0w", 4)},
                 {"classifier.dat", "er", SaveFile::APPEND, std::string("ne\0wer", 6)},
                 {"log.txt", "line", SaveFile::APPEND, "line"},
                 {"empty", "", 0, ""}};
    for (const auto& row : CASES) {
        SaveFileImpl().save(directory.file(row.name), bytes(row.data), row.mode);
        EXPECT_EQ(support::readFile(directory.file(row.name)), row.content) << row.name;
    }
    EXPECT_EQ(entriesOf(directory.path()), 3);
    // The rights of an old file stay, and a new one gets those that any file of the process gets.
    const auto rightsOf = [&](const char* name) {
        return std::filesystem::status(directory.file(name)).permissions();
    };
    support::writeFile(directory.file("plain"), "");
    EXPECT_EQ(rightsOf("empty"), rightsOf("plain"));
    chmod(directory.file("empty").c_str(), 0640);
    SaveFileImpl().save(directory.file("empty"), bytes("new"));
    EXPECT_EQ(rightsOf("empty"), std::filesystem::perms(0640));
    // A name without a directory lies in the current one.
    EXPECT_TRUE(support::holdsInAChild([&] {
        std::filesystem::current_path(directory.path());
        return failureOf("plain", "text") == "no failure" && support::readFile("plain") == "text";
    }));
}

// As operators and their tools treat a log.
TEST(SaveFileTest, AppendsToWhateverHasTheNameNow) {
    namespace fs = std::filesystem;
    const support::TempDir directory;
    const std::string log = directory.file("log.txt");
    const std::string moved = directory.file("moved.txt");
    const auto append = [&](const char* line) {
        EXPECT_EQ(failureOf(log, line, SaveFile::APPEND), "no failure");
        // Who has moved a log may compress it, or take its file system away, at once.
        for (const auto& descriptor : fs::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            EXPECT_NE(fs::read_symlink(descriptor, gone), fs::canonical(log));
        }
    };
    append("1");
    append("2");
    fs::rename(log, moved);
    append("3");
    EXPECT_EQ(support::readFile(moved), "12");
    EXPECT_EQ(support::readFile(log), "3");
    fs::rename(moved, log);
    append("4");
    EXPECT_EQ(support::readFile(log), "124");
    fs::resize_file(log, 0);
    // Nor does another file that is appended to in between keep the first from being found again.
    EXPECT_EQ(failureOf(directory.file("other"), "x", SaveFile::APPEND), "no failure");
    append("5");
    EXPECT_EQ(support::readFile(log), "5");
}

// Every call fails in turn until a save gets through.
TEST(SaveFileTest, WhicheverCallFailsTheOldFileIsThereWholeAndNothingElse) {
    const std::set<std::string> all = {"readlink", "stat",   "faccessat", "open",     "openat",
                                       "fchmod",   "writev", "fsync",     "renameat2"};
    std::set<std::string> ofANewFile = all;
    ofANewFile.erase("faccessat");
    ofANewFile.erase("fchmod");
    const struct {
        const char* name;
        const char* content;  // what stands behind it before; null if there is nothing
        std::set<std::string> calls;
    } FILES[] = {{"old", "old", all}, {"new", nullptr, ofANewFile}, {"link", "old", all}};
    const std::string data = "the new content";
    for (const auto& row : FILES) {
        for (const int error : {EIO, EINTR}) {
            std::set<std::string> failed;
            for (int call = 0;; ++call) {
                const support::TempDir directory;
                const std::string name = directory.file(row.name);
                std::filesystem::create_symlink("old", directory.file("link"));
                if (row.content != nullptr) {
                    support::writeFile(directory.file("old"), row.content);
                }
                const std::ptrdiff_t before = entriesOf(directory.path());
                const support::FailingCalls calls(call, error, 4);
                const std::string failure = support::failureOf<SaveFileException>(
                    [&] { SaveFileImpl(calls).save(name, bytes(data)); });
                SCOPED_TRACE(std::string(row.name) + ", " + calls.failed() + ": " + failure);
                if (failure == "no failure") {
                    EXPECT_EQ(support::readFile(name), data);
                    EXPECT_TRUE(std::filesystem::is_symlink(directory.file("link")));
                    // What can't be deleted stays until the next start.
                    EXPECT_EQ(entriesOf(directory.path()),
                              before + (row.content == nullptr || calls.failed() == "unlinkat" ? 1 : 0));
                    if (calls.failed().empty()) {
                        break;
                    }
                    continue;
                }
                failed.insert(calls.failed());
                EXPECT_EQ(std::filesystem::exists(name), row.content != nullptr);
                EXPECT_EQ(support::readFile(name), row.content == nullptr ? "" : row.content);
                EXPECT_EQ(entriesOf(directory.path()), before);
                EXPECT_NE(failure.find("The system call '" + calls.failed() + "' failed"), std::string::npos);
                EXPECT_NE(failure.find("Error code: " + std::to_string(error) + "."), std::string::npos);
            }
            std::set<std::string> expected = row.calls;
            if (error == EINTR) {  // after which these are made once more
                for (const char* repeated : {"open", "openat", "writev"}) {
                    expected.erase(repeated);
                }
            }
            EXPECT_EQ(failed, expected);
        }
    }
}

TEST(SaveFileTest, FailedSyncIsNotTriedAgain) {
    const support::TempDir directory;
    // After a failure the kernel may have dropped the pages and would report success.
    const support::FailingCalls sync("fsync", EIO);
    EXPECT_THROW(SaveFileImpl(sync).save(directory.file("file"), bytes("new")), SaveFileException);
    EXPECT_EQ(sync.count("fsync"), 1);
    // On a file system that can't trade names the new content may be all that is left.
    support::writeFile(directory.file("file"), "old");
    const support::FailingCalls exchange("renameat2", EINVAL);
    SaveFileImpl(exchange).save(directory.file("file"), bytes("new"));
    EXPECT_EQ(support::readFile(directory.file("file")), "new");
    EXPECT_EQ(entriesOf(directory.path()), 1);
}

TEST(SaveFileTest, FailureSaysWhatWasTriedAndChangesNothing) {
    const support::TempDir directory;
    std::filesystem::create_directory(directory.file("folder"));
    ASSERT_EQ(mkfifo(directory.file("pipe").c_str(), 0600), 0);
    const struct {
        std::string name;
        std::uint32_t mode;
        const char* code;
    } CASES[] = {
        {"", 0, "Error code: 0."},
        {directory.file("none/file"), 0, "Error code: 2."},
        {directory.file("none/file"), SaveFile::APPEND, "Error code: 2."},
        {directory.file("folder"), 0, "Error code: 21."},
        {directory.file("pipe"), 0, "Error code: 22."},
        {directory.file(std::string(250, 'x')), 0, "Error code: 36."},
        {"/dev/full", SaveFile::APPEND, "No space left on device. Error code: 28."},
    };
    for (const auto& row : CASES) {
        EXPECT_NE(failureOf(row.name, "text", row.mode).find(row.code), std::string::npos) << row.name;
    }
    EXPECT_TRUE(std::filesystem::is_fifo(directory.file("pipe")));
    EXPECT_EQ(entriesOf(directory.path()), 2);
}

TEST(SaveFileTest, SymbolicLinkStaysAndTheFileBehindItIsReplaced) {
    const support::TempDir directory;
    std::filesystem::create_directory(directory.file("elsewhere"));
    support::writeFile(directory.file("elsewhere/real"), "old");
    const struct {
        std::string link;
        std::string target;
    } CASES[] = {{"absolute", directory.file("elsewhere/real")},
                 {"relative", "elsewhere/real"},
                 {"chained", "relative"},
                 {"dangling", "elsewhere/new"}};
    for (const auto& row : CASES) {
        const std::string link = directory.file(row.link);
        std::filesystem::create_symlink(row.target, link);
        SaveFileImpl().save(link, bytes(row.link));
        EXPECT_TRUE(std::filesystem::is_symlink(link)) << link;
        EXPECT_EQ(support::readFile(link), row.link);
    }
    EXPECT_EQ(entriesOf(directory.file("elsewhere")), 2);
    std::filesystem::create_symlink("loop", directory.file("loop"));
    EXPECT_NE(failureOf(directory.file("loop"), "text").find("Error code: 40."), std::string::npos);
}

TEST(SaveFileTest, WriteProtectedFileStays) {
    const support::TempDir directory;
    chmod(directory.path().c_str(), 0777);
    support::writeFile(directory.file("protected"), "old");
    chmod(directory.file("protected").c_str(), 0444);
    EXPECT_TRUE(support::holdsForAPlainUser([&] {
        return failureOf(directory.file("protected"), "new").find("Error code: 13.") != std::string::npos;
    }));
    EXPECT_EQ(support::readFile(directory.file("protected")), "old");
}

TEST(LeftoversTest, OnlyFilesOfUnfinishedSavesGo) {
    const support::TempDir directory;
    // The name comes from a save that is really cut short, so that both sides keep to one form.
    support::holdsInAChild([&] {
        const rlimit limit = {10, 10};
        setrlimit(RLIMIT_FSIZE, &limit);
        return failureOf(directory.file("big.dat"), std::string(20, 'x')).empty();
    });
    ASSERT_EQ(entriesOf(directory.path()), 1);
    for (const char* name : {"kept.dat", ".hidden", "kept.tmp", "a.dat.abcdef.tmp"}) {
        support::writeFile(directory.file(name), "kept");
    }
    std::filesystem::create_directory(directory.file(".folder.abcdef.tmp"));
    EXPECT_EQ(removeLeftovers(directory.path() + "/"), 1u);
    EXPECT_EQ(removeLeftovers(directory.path()), 0u);
    EXPECT_EQ(entriesOf(directory.path()), 5);
}

}  // namespace
}  // namespace io::filesystem
