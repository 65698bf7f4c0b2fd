#include "io/filesystem/SaveFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include "io/filesystem/Leftovers.h"
#include "support/TempDir.h"

namespace {

// 0: fsync works; n: the n-th call from now on fails, and fails as a broken disk does: once.
thread_local int failingSync = 0;
thread_local int syncCalls = 0;

}  // namespace

// Stands before the C library's, so that tests can have a disk that fails.
extern "C" int fsync(int descriptor) {
    ++syncCalls;
    if (failingSync != 0 && --failingSync == 0) {
        errno = EIO;
        return -1;
    }
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}

namespace io::filesystem {
namespace {

util::Bytes bytes(const std::string& text) { return util::Bytes(text.begin(), text.end()); }

std::string failureOf(const std::string& name, const std::string& text, std::uint32_t mode = 0) {
    try {
        SaveFileImpl().save(name, bytes(text), mode);
    } catch (const SaveFileException& e) {
        return e.what();
    }
    return "no failure";
}

std::ptrdiff_t entriesOf(const std::string& directory) {
    return std::distance(std::filesystem::directory_iterator(directory), {});
}

// To the kernel a file at this limit is like a full disk.
void limitFileSize(rlim_t bytes) {
    const rlimit limit = {bytes, bytes};
    setrlimit(RLIMIT_FSIZE, &limit);
}

TEST(SaveFileTest, ReplacesOrAppendsAndCreatesWhatIsMissing) {
    const support::TempDir directory;
    const std::string name = directory.file("classifier.dat");
    const SaveFileImpl saveFile;
    saveFile.save(name, bytes("a longer first content"));
    saveFile.save(name, bytes(std::string("ne\0w", 4)));
    EXPECT_EQ(support::readFile(name), std::string("ne\0w", 4));
    saveFile.save(name, bytes("er"), SaveFile::APPEND);
    saveFile.save(name, {}, SaveFile::APPEND);
    EXPECT_EQ(support::readFile(name), std::string("ne\0wer", 6));
    saveFile.save(directory.file("log.txt"), bytes("line"), SaveFile::APPEND);
    EXPECT_EQ(support::readFile(directory.file("log.txt")), "line");
    saveFile.save(name, {});
    EXPECT_EQ(support::readFile(name), "");
    saveFile.save(directory.file("empty"), {});
    EXPECT_TRUE(std::filesystem::exists(directory.file("empty")));
    EXPECT_EQ(entriesOf(directory.path()), 3);
}

TEST(SaveFileTest, NameWithoutDirectoryIsSavedInTheCurrentOne) {
    const support::TempDir directory;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory.path());
    EXPECT_EQ(failureOf("plain", "text"), "no failure");
    std::filesystem::current_path(before);
    EXPECT_EQ(support::readFile(directory.file("plain")), "text");
}

TEST(SaveFileTest, RightsOfTheOldFileStayAndANewOneTakesThoseOfTheProcess) {
    const support::TempDir directory;
    const auto rightsOf = [&](const char* name) {
        struct stat status {};
        stat(directory.file(name).c_str(), &status);
        return status.st_mode & 07777;
    };
    support::writeFile(directory.file("old"), "old");
    chmod(directory.file("old").c_str(), 0640);
    SaveFileImpl().save(directory.file("old"), bytes("new"));
    EXPECT_EQ(rightsOf("old"), 0640u);
    SaveFileImpl().save(directory.file("new"), bytes("new"));
    support::writeFile(directory.file("plain"), "");
    EXPECT_EQ(rightsOf("new"), rightsOf("plain"));
}

TEST(SaveFileTest, FailedSyncFailsTheSaveKeepsTheOldFileAndIsNotTriedAgain) {
    const support::TempDir directory;
    const std::string name = directory.file("classifier.dat");
    support::writeFile(name, "old");
    syncCalls = 0;
    failingSync = 1;
    const std::string failure = failureOf(name, "new");
    EXPECT_EQ(
        failure.rfind("An error occurred when trying to write the file.\nFilename: '" + name + "'. \n", 0),
        0u)
        << failure;
    EXPECT_NE(failure.find("Error code: 5.\nC++ exception: The system call 'fsync' failed."),
              std::string::npos);
    EXPECT_EQ(syncCalls, 1);
    EXPECT_EQ(support::readFile(name), "old");
    EXPECT_EQ(entriesOf(directory.path()), 1);

    // Here the new content has its name already, but nobody knows whether the disk has it.
    failingSync = 2;
    EXPECT_NE(failureOf(name, "new").find("for the directory of the file."), std::string::npos);
    EXPECT_EQ(support::readFile(name), "new");
    EXPECT_EQ(entriesOf(directory.path()), 1);
}

TEST(SaveFileTest, FullDiskKeepsTheOldFileAndLeavesNothingBehind) {
    const support::TempDir directory;
    const std::string name = directory.file("classifier.dat");
    support::writeFile(name, "old");
    EXPECT_EXIT(
        {
            std::signal(SIGXFSZ, SIG_IGN);
            limitFileSize(100000);
            const std::string failure = failureOf(name, std::string(300000, 'x'));
            const char* end = "Error code: 27.\nC++ exception: The system call 'write' failed.";
            _exit(failure.find(end) != std::string::npos ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(support::readFile(name), "old");
    EXPECT_EQ(entriesOf(directory.path()), 1);
    const std::string failure = failureOf("/dev/full", "text", SaveFile::APPEND);
    EXPECT_EQ(failure.rfind("An error occurred when trying to write the file.\n", 0), 0u) << failure;
    EXPECT_NE(failure.find("No space left on device. Error code: 28."), std::string::npos) << failure;
}

TEST(SaveFileTest, WhatCannotBeOpenedFailsBeforeAnythingChanges) {
    const support::TempDir directory;
    std::filesystem::create_directory(directory.file("folder"));
    ASSERT_EQ(mkfifo(directory.file("pipe").c_str(), 0600), 0);
    const char* const OPENING = "An error occurred when trying to open the file for writing.\n";
    const char* const NAMELESS = "Cannot open file. No filename specified.\n";
    const struct {
        std::string name;
        std::uint32_t mode;
        const char* beginning;
        const char* code;
    } CASES[] = {
        {"", 0, NAMELESS, "Error code: 0."},
        {"", SaveFile::APPEND, NAMELESS, "Error code: 0."},
        {directory.file("none/file"), 0, OPENING, "Error code: 2."},
        {directory.file("none/file"), SaveFile::APPEND, OPENING, "Error code: 2."},
        {directory.file("folder"), 0, OPENING, "Error code: 21."},
        {directory.file("folder"), SaveFile::APPEND, OPENING, "Error code: 21."},
        {directory.file("pipe"), 0, OPENING, "Error code: 22."},
        {directory.file(std::string(250, 'x')), 0, OPENING, "Error code: 36."},
    };
    for (const auto& row : CASES) {
        const std::string failure = failureOf(row.name, "text", row.mode);
        EXPECT_EQ(failure.rfind(row.beginning, 0), 0u) << failure;
        EXPECT_NE(failure.find(row.code), std::string::npos) << failure;
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
    EXPECT_EXIT(
        {
            // Rights mean nothing to the administrator.
            const bool plainUser = geteuid() != 0 || seteuid(65534) == 0;
            const std::string failure = failureOf(directory.file("protected"), "new");
            _exit(plainUser && failure.find("Error code: 13.") != std::string::npos ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(support::readFile(directory.file("protected")), "old");
}

TEST(LeftoversTest, OnlyFilesOfUnfinishedSavesGo) {
    const support::TempDir directory;
    // The name comes from a save that is really cut short, so that both sides keep to one form.
    EXPECT_EXIT(
        {
            limitFileSize(10);
            failureOf(directory.file("big.dat"), std::string(20, 'x'));
        },
        testing::KilledBySignal(SIGXFSZ), "");
    ASSERT_EQ(entriesOf(directory.path()), 1);
    const char* const STAYING[] = {"kept.dat", ".hidden", "kept.tmp", "a.dat.abcdef.tmp"};
    for (const char* name : STAYING) {
        support::writeFile(directory.file(name), "kept");
    }
    std::filesystem::create_directory(directory.file(".folder.abcdef.tmp"));
    EXPECT_EQ(removeLeftovers(directory.path() + "/"), 1u);
    EXPECT_EQ(removeLeftovers(directory.path()), 0u);
    for (const char* name : STAYING) {
        EXPECT_TRUE(std::filesystem::exists(directory.file(name))) << name;
    }
    EXPECT_EQ(entriesOf(directory.path()), 5);
}

}  // namespace
}  // namespace io::filesystem
