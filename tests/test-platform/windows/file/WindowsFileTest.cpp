#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "support/TempDir.h"
#include "windows/file/CreateFolder.h"
#include "windows/file/CurrentDirectory.h"
#include "windows/file/DeleteFile.h"
#include "windows/file/DiskSpace.h"
#include "windows/file/FindFiles.h"
#include "windows/file/Module.h"

namespace windows::file {
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

TEST(CreateFolderTest, MakesOneDirectoryAndLeavesWhatExists) {
    const support::TempDir directory;
    const CreateFolderImpl createFolder;
    createFolder.create(directory.file("logs/"), true);
    support::writeFile(directory.file("logs/log.txt"), "line");
    createFolder.create(directory.file("logs/"), false);
    EXPECT_EQ(support::readFile(directory.file("logs/log.txt")), "line");
    EXPECT_EQ(failureOf([&] { createFolder.create(directory.file("logs"), true); }),
              "Could not create the directory: " + directory.file("logs") +
                  ".\n\nSystem error message: File exists. Error code: 17.");
    EXPECT_EQ(failureOf([&] { createFolder.create(directory.file("no/parent"), false); }),
              "Could not create the directory: " + directory.file("no/parent") +
                  ".\n\nSystem error message: No such file or directory. Error code: 2.");
}

TEST(DeleteFileTest, TellsRefusalFromOtherFailures) {
    const support::TempDir directory;
    const DeleteFileImpl deleteFile;
    const std::string name = directory.file("file");
    support::writeFile(name, "");
    deleteFile.remove(name, true);
    EXPECT_FALSE(std::filesystem::exists(name));
    deleteFile.remove(name, false);
    EXPECT_EQ(failureOf([&] { deleteFile.remove(name, true); }),
              "Couldn't delete the file: " + name +
                  "\nSystem error message: No such file or directory. Error code: 2.");
    support::writeFile(name, "");
    chmod(directory.path().c_str(), 0555);
    EXPECT_EXIT(
        {
            const bool plainUser = geteuid() != 0 || seteuid(65534) == 0;
            const std::string text = "Access was denied when trying to delete the file: " + name + "\n";
            bool denied = false;
            try {
                deleteFile.remove(name, false);
            } catch (const DeleteFileAccessDeniedException& e) {
                denied = std::string(e.what()).rfind(text, 0) == 0;
            }
            _exit(plainUser && denied ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    chmod(directory.path().c_str(), 0700);
}

TEST(CurrentDirectoryTest, EndsWithASlashAndRefusesWhatIsNoDirectory) {
    const support::TempDir directory;
    const CurrentDirectoryImpl currentDirectory;
    const std::string before = currentDirectory.get();
    currentDirectory.set(directory.path());
    EXPECT_EQ(currentDirectory.get(), std::filesystem::canonical(directory.path()).string() + "/");
    currentDirectory.set("/");
    EXPECT_EQ(currentDirectory.get(), "/");
    currentDirectory.set(before);
    EXPECT_EQ(failureOf([&] { currentDirectory.set(directory.file("none")); }),
              "Could not set the directory, " + directory.file("none") +
                  ", to the current directory.\n\n"
                  "System error message: No such file or directory. Error code: 2.");
    EXPECT_EXIT(
        {
            std::filesystem::create_directory(directory.file("gone"));
            currentDirectory.set(directory.file("gone"));
            std::filesystem::remove(directory.file("gone"));
            const char* expected =
                "Couldn't get the current directory.\n\n "
                "System error message: No such file or directory. Error code: 2.";
            _exit(failureOf([&] { currentDirectory.get(); }) == expected ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(DiskSpaceTest, IsBetweenNothingAndTheSizeOfTheDisk) {
    const support::TempDir directory;
    struct statvfs status {};
    ASSERT_EQ(statvfs(directory.path().c_str(), &status), 0);
    const std::uint64_t free = DiskSpaceImpl().free(directory.path());
    EXPECT_GT(free, 1000000u);
    EXPECT_LE(free, status.f_blocks * status.f_frsize);
    EXPECT_EQ(failureOf([&] { DiskSpaceImpl().free(directory.file("none")); }),
              "Could not get the amount of free disk space for the directory " + directory.file("none") +
                  "\n\nSystem error message: No such file or directory. Error code: 2.");
}

TEST(ModuleTest, NamesTheRunningExecutable) {
    const std::string name = ModuleImpl().fileName();
    EXPECT_EQ(name.front(), '/');
    EXPECT_EQ(std::filesystem::path(name).filename(), "test-platform");
}

class FindFilesTest : public testing::Test {
protected:
    FindFilesTest() {
        for (const char* name : {"b.xml", "a.txt", "a.xml", "c.XML", ".d.xml", "e.xml.bak"}) {
            support::writeFile(_directory.file(name), "");
        }
        std::filesystem::create_directory(_directory.file("sub.xml"));
        support::writeFile(_directory.file("sub.xml/inner.xml"), "");
    }

    // The paths without the directory, which each of them must begin with.
    std::vector<std::string> names(const std::vector<std::string>& paths) const {
        std::vector<std::string> result;
        for (const std::string& path : paths) {
            EXPECT_EQ(path.rfind(_directory.path() + "/", 0), 0u) << path;
            result.push_back(path.substr(_directory.path().size() + 1));
        }
        return result;
    }

    const support::TempDir _directory;
};

TEST_F(FindFilesTest, ListsFilesMaskByMask) {
    std::vector<std::string> found =
        names(FileEnumeratorImpl().enumerate(_directory.path(), "*.xml;*.none;*.txt"));
    ASSERT_EQ(found.size(), 4u);
    EXPECT_EQ(found.back(), "a.txt");
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, (std::vector<std::string>{".d.xml", "a.txt", "a.xml", "b.xml"}));
    EXPECT_TRUE(FileEnumeratorImpl().enumerate(_directory.path() + "/", "*.none").empty());
}

TEST_F(FindFilesTest, AttributesAndExcludesNarrowTheList) {
    const struct {
        std::uint32_t attributes;
        std::vector<std::string> excludes;
        bool filesOnly;
        std::vector<std::string> expected;
    } CASES[] = {
        {FindFiles::ALL, {"a.xml"}, false, {".d.xml", "b.xml", "sub.xml"}},
        {FindFiles::DIRECTORY, {}, false, {"sub.xml"}},
        {FindFiles::DIRECTORY, {}, true, {}},
        {FindFiles::HIDDEN, {}, true, {".d.xml"}},
        {FindFiles::FILE, {"b", "A.xml"}, false, {".d.xml", "a.xml", "b.xml"}},
    };
    for (const auto& row : CASES) {
        std::vector<std::string> found = names(FindFilesImpl().find(
            _directory.path() + "/", "*.xml", row.attributes, row.excludes, row.filesOnly));
        std::sort(found.begin(), found.end());
        EXPECT_EQ(found, row.expected);
    }
}

TEST_F(FindFilesTest, DirectoryThatCannotBeOpenedFails) {
    const std::string none = _directory.file("none");
    EXPECT_THROW(FindFilesImpl().find(none, "*", FindFiles::ALL, {}, false), FindFilesException);
    EXPECT_EQ(
        failureOf([&] { FileEnumeratorImpl().enumerate(none, "*"); }),
        "Error when trying to get first level directories. \nThe error occured when opening a find file "
        "handle. Initial directory: " +
            none + "\n\nSystem error message: No such file or directory. Error code: 2.");
}

}  // namespace
}  // namespace windows::file
