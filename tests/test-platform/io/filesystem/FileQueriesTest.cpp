#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "io/filesystem/ExistsDir.h"
#include "io/filesystem/ExistsFile.h"
#include "io/filesystem/RemoveFile.h"
#include "io/filesystem/SizeFile.h"
#include "support/TempDir.h"

namespace io::filesystem {
namespace {

template <class Operation>
std::string failureOf(Operation operation) {
    try {
        operation();
    } catch (const exceptions::Exception& e) {
        return e.what();
    }
    return "no failure";
}

class FileQueriesTest : public testing::Test {
protected:
    FileQueriesTest() {
        support::writeFile(_directory.file("file"), "12345");
        std::filesystem::create_directory(_directory.file("folder"));
        std::filesystem::create_symlink("nowhere", _directory.file("dangling"));
        std::filesystem::create_symlink("loop", _directory.file("loop"));
    }

    const support::TempDir _directory;
};

TEST_F(FileQueriesTest, FilesAndDirectoriesAreToldApart) {
    const struct {
        std::string name;
        bool file;
        bool directory;
    } CASES[] = {{"file", true, false},       {"folder", false, true},
                 {"folder/", false, true},    {"none", false, false},
                 {"none/none", false, false}, {"file/none", false, false},
                 {"dangling", false, false},  {std::string(300, 'x'), false, false}};
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(ExistsFileImpl().exists(_directory.file(row.name)), row.file);
        EXPECT_EQ(ExistsDirImpl().exists(_directory.file(row.name)), row.directory);
    }
    EXPECT_FALSE(ExistsFileImpl().exists(""));
    EXPECT_FALSE(ExistsDirImpl().exists(""));
    EXPECT_EQ(failureOf([&] { ExistsDirImpl().exists(_directory.file("loop")); }),
              "An error occured when checking if the directory \" " + _directory.file("loop") +
                  "\" exists. System error message: Too many levels of symbolic links. Error code: 40.");
}

TEST_F(FileQueriesTest, WhatCannotBeReachedCountsAsAFileAndAsNoAnswerForADirectory) {
    chmod(_directory.file("folder").c_str(), 0);
    chmod(_directory.path().c_str(), 0755);
    EXPECT_EXIT(
        {
            const bool plainUser = geteuid() != 0 || seteuid(65534) == 0;
            const std::string name = _directory.file("folder/file");
            const std::string failure = failureOf([&] { ExistsDirImpl().exists(name); });
            const bool refused = failure.find("Error code: 13.") != std::string::npos;
            _exit(plainUser && refused && ExistsFileImpl().exists(name) ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    chmod(_directory.file("folder").c_str(), 0700);
}

TEST_F(FileQueriesTest, SizeOfAFileAlsoWhileOthersHoldIt) {
    const SizeFileImpl sizeFile;
    const std::string name = _directory.file("file");
    const int holder = open(name.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(holder, 0);
    fcntl(holder, F_SETLEASE, F_WRLCK);
    EXPECT_EQ(sizeFile.size(name, true), 5u);
    close(holder);
    std::filesystem::resize_file(name, 5000000000ull);
    EXPECT_EQ(sizeFile.size(name, false), 5000000000ull);
    const std::string none = _directory.file("none");
    EXPECT_EQ(sizeFile.size(none, false), 0u);
    EXPECT_EQ(failureOf([&] { sizeFile.size(none, true); }),
              "Failed to open '" + none +
                  "' while getting file size.\n"
                  "System error message: No such file or directory. Error code: 2.");
    EXPECT_THROW(sizeFile.size(_directory.file("folder"), false), LoadFileException);
    EXPECT_THROW(sizeFile.size(_directory.file("loop"), false), SizeFileException);
}

TEST_F(FileQueriesTest, RemovedFileIsGoneAndAMissingOneIsNoFailure) {
    const RemoveFileImpl removeFile;
    removeFile.remove(_directory.file("file"));
    EXPECT_FALSE(std::filesystem::exists(_directory.file("file")));
    removeFile.remove(_directory.file("file"));
    removeFile.remove(_directory.file("none/none"));
    const std::string folder = _directory.file("folder");
    EXPECT_EQ(failureOf([&] { removeFile.remove(folder); }),
              "Couldn't delete the file '" + folder +
                  "' file using the 'DeleteFile' system call.\n"
                  "System error message: Is a directory. Error code: 21.");
    EXPECT_TRUE(std::filesystem::exists(folder));
}

}  // namespace
}  // namespace io::filesystem
