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
    const std::string path = directory.file("dump.dmp");
    EXPECT_THAT(failureOf(failing, directory.file("none/dump.dmp")), testing::EndsWith("Error code: 2."));
    EXPECT_THAT(failureOf(failing, path), testing::EndsWith("Error code: 28."));
    EXPECT_FALSE(std::filesystem::exists(path));
    // A link to another file, and a pipe that somebody reads.
    support::writeFile(directory.file("kept"), "kept");
    std::filesystem::create_symlink("kept", path);
    EXPECT_NE(failureOf(failing, path), "no failure");
    EXPECT_EQ(support::readFile(path), "kept");
    const std::string pipe = directory.file("pipe.dmp");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const io::filesystem::ScopedDescriptor reader(
        io::filesystem::openFile(pipe.c_str(), O_RDONLY | O_NONBLOCK));
    EXPECT_NE(failureOf(failing, pipe), "no failure");
    EXPECT_TRUE(std::filesystem::exists(pipe));
}

TEST_F(WriteDumpTest, FolderTakesAHundredDumpsWhileThereIsSpace) {
    support::writeFile(directory.file("log.txt"), "");
    for (int i = 0; i < 99; ++i) {
        support::writeFile(directory.file(dumpName(1, i).str()), "");
    }
    EXPECT_EQ(failureOf(writeDump, directory.file("last.dmp")), "no failure");
    EXPECT_THAT(support::readFile(directory.file("last.dmp")),
                testing::AllOf(testing::StartsWith("Cause: The program asked for a dump.\nTime: 2"),
                               testing::HasSubstr("WriteDumpTest.cpp:")));
    EXPECT_THAT(failureOf(writeDump, directory.file("more.dmp")), testing::HasSubstr("already holds 100"));
    EXPECT_FALSE(std::filesystem::exists(directory.file("more.dmp")));
    EXPECT_STREQ(dumpRefusal("./logs/", 99, 1000000000).str(), "");
    EXPECT_STRNE(dumpRefusal("./logs/", 0, 999999999).str(), "");
}

}  // namespace
}  // namespace windows::debug
