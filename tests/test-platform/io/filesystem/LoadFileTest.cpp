#include "io/filesystem/LoadFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "io/filesystem/FileSystemHelper.h"
#include "support/Failure.h"
#include "support/TempDir.h"

namespace io::filesystem {
namespace {

std::string loaded(const std::string& name, std::uint32_t bytes = 0) {
    const util::Bytes data = LoadFileImpl().load(name, bytes);
    return std::string(data.begin(), data.end());
}

std::string failureOf(const std::string& name, std::uint32_t bytes = 0) {
    return support::failureOf<LoadFileException>([&] { LoadFileImpl().load(name, bytes); });
}

TEST(LoadFileTest, GivesTheWholeFileOrItsBeginning) {
    const support::TempDir directory;
    const std::string name = directory.file("five");
    const std::string content("a\0\r\n\xff", 5);
    support::writeFile(name, content);
    support::writeFile(directory.file("empty"), "");
    EXPECT_EQ(loaded(name), content);
    EXPECT_EQ(loaded(name, 3), content.substr(0, 3));
    EXPECT_EQ(loaded(name, 5), content);
    EXPECT_EQ(loaded(directory.file("empty")), "");
}

TEST(LoadFileTest, FailureSaysWhatWasTriedWhereAndWhy) {
    const support::TempDir directory;
    support::writeFile(directory.file("five"), "12345");
    support::writeFile(directory.file("huge"), "");
    std::filesystem::resize_file(directory.file("huge"), 0x80000000ull);
    std::filesystem::create_directory(directory.file("folder"));
    ASSERT_EQ(mkfifo(directory.file("pipe").c_str(), 0600), 0);
    const std::string here = std::filesystem::current_path().string() + "/";
    const struct {
        std::string name;
        std::uint32_t bytes;
        const char* message;
        const char* system;
        const char* cause;
    } CASES[] = {
        {"", 0, "Cannot load file. No filename specified.", "Success. Error code: 0.", "None."},
        {directory.file("none"), 0, "An error occurred when trying to open the file for reading.",
         "No such file or directory. Error code: 2.", "The system call 'open' failed."},
        {directory.file("folder"), 0, "An error occurred when trying to open the file for reading.",
         "Is a directory. Error code: 21.", "None."},
        {directory.file("five"), 10,
         "Tried to read a larger number of bytes from a file that it contained. Tried to read : 10 File "
         "size: 5",
         "Success. Error code: 0.", "None."},
        {directory.file("huge"), 0,
         "Could not load the file because the file size was too big. The file size is 2147483648. The file "
         "cannot be bigger than 2147483647 bytes.",
         "Success. Error code: 0.", "None."},
        {directory.file("pipe"), 0, "An error occurred while trying to get the size of the file.",
         "Illegal seek. Error code: 29.", "The system call 'lseek' failed."},
    };
    for (const auto& row : CASES) {
        EXPECT_EQ(
            failureOf(row.name, row.bytes),
            row.message + ("\nFilename: '" + row.name + "'. \nCurrent Working Directory: '" + here +
                           "'.\nSystem error message: " + row.system + "\nC++ exception: " + row.cause));
    }
    // The limit goes by what is to be read, not by the size of the file.
    EXPECT_EQ(loaded(directory.file("huge"), 4), std::string(4, '\0'));
}

TEST(LoadFileTest, LeaseOfAnotherHolderIsALockViolationAndNoWait) {
    const support::TempDir directory;
    support::writeFile(directory.file("leased"), "12345");
    // The kernel asks the holder for the lease with this signal, whose default action is to end the process.
    const auto previous = std::signal(SIGIO, SIG_IGN);
    const ScopedDescriptor holder(openFile(directory.file("leased").c_str(), O_RDWR));
    if (fcntl(holder.get(), F_SETLEASE, F_WRLCK) == 0) {
        EXPECT_EQ(support::failureOf<LoadFileLockedViolationException>([&] {
                      LoadFileImpl().load(directory.file("leased"));
                  }).rfind("A file lock violation occurred when trying to open the file for reading.\n", 0),
                  0u);
    }
    std::signal(SIGIO, previous);
}

}  // namespace
}  // namespace io::filesystem
