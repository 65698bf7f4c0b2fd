#include "windows/debug/WriteDump.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>

#include "io/filesystem/FileSystemHelper.h"
#include "support/Failure.h"
#include "support/TempDir.h"
#include "windows/debug/DumpFolder.h"
#include "windows/debug/DumpName.h"
#include "windows/debug/DumpText.h"

namespace windows::debug {

namespace {

constexpr auto failureOf = [](WriteDump& writeDump, const std::string& path) {
    return support::failureOf<MiniDumpException>([&] { writeDump.write(path); });
};

// Leaves a part of a dump when the disk is full.
class FullDiskMiniDump final : public MiniDump {
public:
    int write(int file, const DumpCause&) const noexcept override {
        return ::write(file, "part", 4) == 4 ? ENOSPC : EIO;
    }
};

struct WriteDumpTest : testing::Test {
    const support::TempDir directory;
    const MiniDumpImpl miniDump{"Test 1.0"};
    const FullDiskMiniDump fullDisk;
    const windows::file::DeleteFileImpl deleteFile;
    WriteDumpImpl writeDump{miniDump, deleteFile};
    WriteDumpImpl failing{fullDisk, deleteFile};
};

TEST_F(WriteDumpTest, FailedDumpSaysWhyAndDeletesNothingButItsOwnFile) {
    const std::string creating = "Couldn't create a file to write a dump file to with name ";
    const std::string elsewhere = directory.file("none/dump.dmp");
    EXPECT_EQ(failureOf(failing, elsewhere),
              creating + elsewhere + ".\n\nSystem error message: No such file or directory. Error code: 2.");
    const std::string path = directory.file("dump.dmp");
    EXPECT_EQ(failureOf(failing, path),
              "Couldn't write dump.\n\nSystem error message: No space left on device. Error code: 28.");
    EXPECT_FALSE(std::filesystem::exists(path));
    // A link to another file, and a pipe that somebody reads.
    support::writeFile(directory.file("kept"), "kept");
    std::filesystem::create_symlink("kept", path);
    EXPECT_EQ(failureOf(failing, path).rfind(creating + path, 0), 0u);
    EXPECT_EQ(support::readFile(path), "kept");
    const std::string pipe = directory.file("pipe.dmp");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const io::filesystem::ScopedDescriptor reader(
        io::filesystem::openFile(pipe.c_str(), O_RDONLY | O_NONBLOCK));
    EXPECT_EQ(failureOf(failing, pipe).rfind(creating + pipe, 0), 0u);
    EXPECT_TRUE(std::filesystem::exists(pipe));
}

TEST_F(WriteDumpTest, FolderTakesAHundredDumpsWhileThereIsSpace) {
    support::writeFile(directory.file("log.txt"), "");
    for (int i = 0; i < 99; ++i) {
        support::writeFile(directory.file(dumpName(1, i).str()), "");
    }
    EXPECT_EQ(failureOf(writeDump, directory.file("last.dmp")), "no failure");
    const std::string dump = support::readFile(directory.file("last.dmp"));
    EXPECT_THAT(dump, testing::StartsWith("Cause: The program asked for a dump.\nTime: 2"));
    EXPECT_THAT(dump, testing::HasSubstr(" UTC\nBuild: Test 1.0, compiler "));
    EXPECT_THAT(dump, testing::HasSubstr("\nThread: " + std::to_string(gettid()) + " ("));
    EXPECT_THAT(dump, testing::HasSubstr("WriteDumpTest.cpp:"));
    EXPECT_EQ(
        failureOf(writeDump, directory.file("more.dmp")),
        "The directory '" + directory.path() + "/' already holds 100 dumps. Move them away to get new ones.");
    EXPECT_FALSE(std::filesystem::exists(directory.file("more.dmp")));
    EXPECT_STREQ(dumpRefusal("./logs/", 99, 1000000000).str(), "");
    EXPECT_STREQ(
        dumpRefusal("./logs/", 0, 999999999).str(),
        "The disk of the directory './logs/' has only 999999999 bytes left, which is too little for a dump.");
    EXPECT_STREQ(dumpName(3042, 1794153225).str(), "dump_threadid_3042_time_1794153225.dmp");
}

TEST(DumpTextTest, WritesAllOfItUpToItsLimitOrTellsWhyNot) {
    const support::TempDir directory;
    const io::filesystem::ScopedDescriptor file(
        io::filesystem::openFile(directory.file("text").c_str(), O_RDWR | O_CREAT, 0600));
    DumpText text(file.get());
    const std::string rest(300000, 'x');
    (text << INT64_MIN << " ").hex(0).hex(UINT64_MAX).twoDigits(7) << rest.c_str() << "more";
    EXPECT_EQ(text.finish(), 0);
    EXPECT_EQ(support::readFile(directory.file("text")),
              ("-9223372036854775808 0x00xffffffffffffffff07" + rest).substr(0, DumpText::MAX_SIZE));
    const io::filesystem::ScopedDescriptor fullDisk(io::filesystem::openFile("/dev/full", O_WRONLY));
    DumpText lost(fullDisk.get());
    lost << "text";
    EXPECT_EQ(lost.finish(), ENOSPC);
}

}  // namespace
}  // namespace windows::debug
