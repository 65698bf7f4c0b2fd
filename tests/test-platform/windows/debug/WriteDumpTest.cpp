#include "windows/debug/WriteDump.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>

#include "io/filesystem/FileSystemHelper.h"
#include "support/TempDir.h"
#include "windows/debug/DumpFolder.h"
#include "windows/debug/DumpName.h"
#include "windows/debug/DumpText.h"

namespace windows::debug {

// Outside the unnamed namespace, so that its name in a stack is the plain one.
[[gnu::noinline]] void whoAsksForTheDump(WriteDump& writeDump, const std::string& path) {
    writeDump.write(path);
    // Keeps the call above from becoming the end of this function.
    asm volatile("" ::: "memory");
}

namespace {

std::string failureOf(WriteDump& writeDump, const std::string& path) {
    try {
        writeDump.write(path);
    } catch (const MiniDumpException& e) {
        return e.what();
    }
    return "no failure";
}

// Leaves a part of a dump when the disk is full.
class FullDiskMiniDump final : public MiniDump {
public:
    int write(int file, const DumpCause&) const noexcept override {
        return ::write(file, "part", 4) == 4 ? ENOSPC : EIO;
    }
};

class RefusingDeleteFile final : public windows::file::DeleteFile {
public:
    void remove(const std::string&, bool) const override {
        throw windows::file::DeleteFileExceptionImpl("It stays.");
    }
};

TEST(WriteDumpTest, DumpTellsWhoAskedWhenAndWhere) {
    const support::TempDir directory;
    const std::string path = directory.file(dumpName().str());
    const MiniDumpImpl miniDump("Test 1.0");
    const windows::file::DeleteFileImpl deleteFile;
    WriteDumpImpl writeDump(miniDump, deleteFile);
    support::writeFile(path, std::string(300000, 'x'));
    whoAsksForTheDump(writeDump, path);
    const std::string dump = support::readFile(path);
    EXPECT_EQ(dump.rfind("Cause: The program asked for a dump.\nTime: 2", 0), 0u);
    EXPECT_LT(dump.size(), 256u * 1024);
    const std::string thread = "\nThread: " + std::to_string(gettid()) + " (";
    for (const char* part :
         {" UTC\nBuild: Test 1.0, compiler ", "test-platform\n", thread.c_str(), "\nStack:\n#0 0x", "\n#1 0x",
          "windows::debug::whoAsksForTheDump(windows::debug::WriteDump&, ", "WriteDumpTest.cpp:2",
          "\nMemory map:\n", "[stack]"}) {
        EXPECT_NE(dump.find(part), std::string::npos) << part << "\n" << dump;
    }
    EXPECT_EQ(dump.find("Registers"), std::string::npos);
}

TEST(WriteDumpTest, FailedDumpLeavesNoFileAndSaysWhy) {
    const support::TempDir directory;
    const FullDiskMiniDump fullDisk;
    const windows::file::DeleteFileImpl deleteFile;
    const RefusingDeleteFile refusing;
    WriteDumpImpl writeDump(fullDisk, deleteFile);
    const std::string elsewhere = directory.file("none/dump.dmp");
    EXPECT_EQ(failureOf(writeDump, elsewhere),
              "Couldn't create a file to write a dump file to with name " + elsewhere +
                  ".\n\nSystem error message: No such file or directory. Error code: 2.");
    const std::string path = directory.file("dump.dmp");
    const std::string full =
        "Couldn't write dump.\n\nSystem error message: No space left on device. Error code: 28.";
    EXPECT_EQ(failureOf(writeDump, path), full);
    EXPECT_FALSE(std::filesystem::exists(path));
    WriteDumpImpl stuck(fullDisk, refusing);
    EXPECT_EQ(failureOf(stuck, path), full + "It stays.");
}

TEST(WriteDumpTest, FailedDumpDeletesNothingButItsOwnFile) {
    const support::TempDir directory;
    const FullDiskMiniDump fullDisk;
    const windows::file::DeleteFileImpl deleteFile;
    WriteDumpImpl writeDump(fullDisk, deleteFile);
    support::writeFile(directory.file("kept"), "kept");
    std::filesystem::create_symlink("kept", directory.file("link.dmp"));
    ASSERT_EQ(mkfifo(directory.file("pipe.dmp").c_str(), 0600), 0);
    const io::filesystem::ScopedDescriptor reader(
        open(directory.file("pipe.dmp").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    for (const char* name : {"link.dmp", "pipe.dmp"}) {
        EXPECT_EQ(failureOf(writeDump, directory.file(name))
                      .rfind("Couldn't create a file to write a dump file to with name ", 0),
                  0u);
        EXPECT_TRUE(std::filesystem::exists(directory.file(name)));
    }
    EXPECT_EQ(support::readFile(directory.file("kept")), "kept");
}

TEST(WriteDumpTest, FolderTakesAHundredDumps) {
    const support::TempDir directory;
    const MiniDumpImpl miniDump("Test 1.0");
    const windows::file::DeleteFileImpl deleteFile;
    WriteDumpImpl writeDump(miniDump, deleteFile);
    support::writeFile(directory.file("log.txt"), "");
    for (int i = 0; i < 99; ++i) {
        support::writeFile(directory.file("dump_threadid_1_time_" + std::to_string(i) + ".dmp"), "");
    }
    EXPECT_EQ(failureOf(writeDump, directory.file("last.dmp")), "no failure");
    EXPECT_EQ(
        failureOf(writeDump, directory.file("more.dmp")),
        "The directory '" + directory.path() + "/' already holds 100 dumps. Move them away to get new ones.");
    EXPECT_FALSE(std::filesystem::exists(directory.file("more.dmp")));
}

TEST(WriteDumpTest, RefusalGoesByDumpsAndFreeSpace) {
    const struct {
        std::uint64_t dumps;
        std::uint64_t freeBytes;
        const char* reason;
    } CASES[] = {
        {0, 1000000000, ""},
        {99, UINT64_MAX, ""},
        {100, UINT64_MAX, "The directory './logs/' already holds 100 dumps. Move them away to get new ones."},
        {0, 999999999,
         "The disk of the directory './logs/' has only 999999999 bytes left, which is too little for a "
         "dump."}};
    for (const auto& row : CASES) {
        EXPECT_STREQ(dumpRefusal("./logs/", row.dumps, row.freeBytes).str(), row.reason);
    }
}

TEST(DumpNameTest, HoldsThreadAndTime) {
    EXPECT_STREQ(dumpName(3042, 1794153225).str(), "dump_threadid_3042_time_1794153225.dmp");
    EXPECT_EQ(std::string(dumpName().str()).rfind("dump_threadid_" + std::to_string(gettid()) + "_time_", 0),
              0u);
}

TEST(DumpTextTest, WritesAllOfItUpToItsLimit) {
    const support::TempDir directory;
    const int file = open(directory.file("text").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    DumpText text(file);
    text << std::int64_t{0} << " " << INT64_MIN << " " << INT64_MAX << " ";
    text.hex(0).hex(UINT64_MAX).twoDigits(7).twoDigits(59);
    std::string expected = "0 -9223372036854775808 9223372036854775807 0x00xffffffffffffffff0759";
    for (int i = 0; i < 24000; ++i) {
        const std::string line = "line " + std::to_string(i) + "\n";
        text << line.c_str();
        expected += line;
    }
    ASSERT_GE(expected.size(), DumpText::MAX_SIZE - 10000);
    text << std::string(20000, 'x').c_str();
    expected.append(20000, 'x');
    EXPECT_EQ(text.room(), 0u);
    EXPECT_EQ(text.finish(), 0);
    EXPECT_EQ(support::readFile(directory.file("text")), expected.substr(0, DumpText::MAX_SIZE));
    close(file);
}

TEST(DumpTextTest, TellsThatTheDiskIsFull) {
    const int file = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(file, 0);
    DumpText text(file);
    text << "text";
    EXPECT_EQ(text.finish(), ENOSPC);
    close(file);
}

}  // namespace
}  // namespace windows::debug
