#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <optional>

#include "io/filesystem/DirectoryLock.h"
#include "io/filesystem/ExistsDir.h"
#include "io/filesystem/ExistsFile.h"
#include "io/filesystem/FileSystemHelper.h"
#include "io/filesystem/RemoveFile.h"
#include "io/filesystem/SizeFile.h"
#include "support/Descriptors.h"
#include "support/Failure.h"
#include "support/TempDir.h"
#include "windows/file/CreateFolder.h"
#include "windows/file/CurrentDirectory.h"
#include "windows/file/DeleteFile.h"
#include "windows/file/DiskSpace.h"
#include "windows/file/FindFiles.h"
#include "windows/file/Module.h"

namespace {

using namespace io::filesystem;
using namespace windows::file;
using support::failureOf;

class FileOperationsTest : public testing::Test {
protected:
    FileOperationsTest() {
        support::writeFile(at("file"), "12345");
        std::filesystem::create_directory(at("folder"));
        std::filesystem::create_symlink("nowhere", at("dangling"));
        std::filesystem::create_symlink("loop", at("loop"));
    }

    std::string at(const std::string& name) const { return _directory.file(name); }

    const support::TempDir _directory;
};

TEST_F(FileOperationsTest, FilesAndDirectoriesAreToldApart) {
    const struct {
        std::string name;
        bool file;
        bool directory;
    } CASES[] = {{at("file"), true, false},
                 {at("folder/"), false, true},
                 {at("none/none"), false, false},
                 {at("file/none"), false, false},
                 {at("dangling"), false, false},
                 {at(std::string(300, 'x')), false, false},
                 {"", false, false}};
    for (const auto& row : CASES) {
        EXPECT_EQ(ExistsFileImpl().exists(row.name), row.file) << row.name;
        EXPECT_EQ(ExistsDirImpl().exists(row.name), row.directory) << row.name;
    }
}

TEST_F(FileOperationsTest, FailureSaysWhatWasTriedAndWhy) {
    const std::string none = at("none");
    const char* const MISSING = "No such file or directory. Error code: 2.";
    const struct {
        std::function<void()> operation;
        std::string words;
        const char* system;
    } CASES[] = {
        {[&] { ExistsDirImpl().exists(at("loop")); },
         "An error occured when checking if the directory \" " + at("loop") + "\" exists. ",
         "Too many levels of symbolic links. Error code: 40."},
        {[&] { SizeFileImpl().size(none, true); }, "Failed to open '" + none + "' while getting file size.\n",
         MISSING},
        {[&] { SizeFileImpl().size(at("folder"), false); },
         "Failed to open '" + at("folder") + "' while getting file size.\n",
         "Is a directory. Error code: 21."},
        {[&] { RemoveFileImpl().remove(at("folder")); },
         "Couldn't delete the file '" + at("folder") + "' file using the 'DeleteFile' system call.\n",
         "Is a directory. Error code: 21."},
        {[&] { DirectoryLock lock(at("file")); },
         "Could not open the directory '" + at("file") + "' to lock it for this process. ",
         "Not a directory. Error code: 20."},
        {[&] { CreateFolderImpl().create(at("folder"), true); },
         "Could not create the directory: " + at("folder") + ".\n\n", "File exists. Error code: 17."},
        {[&] { CreateFolderImpl().create(at("no/parent"), false); },
         "Could not create the directory: " + at("no/parent") + ".\n\n", MISSING},
        {[&] { DeleteFileImpl().remove(none, true); }, "Couldn't delete the file: " + none + "\n", MISSING},
        {[&] { CurrentDirectoryImpl().set(none); },
         "Could not set the directory, " + none + ", to the current directory.\n\n", MISSING},
        {[&] { DiskSpaceImpl().free(none); },
         "Could not get the amount of free disk space for the directory " + none + "\n\n", MISSING},
        {[&] { FileEnumeratorImpl().enumerate(none, "*"); },
         "Error when trying to get first level directories. \nThe error occured when opening a find file "
         "handle. Initial directory: " +
             none + "\n\n",
         MISSING},
    };
    for (const auto& row : CASES) {
        EXPECT_EQ(failureOf(row.operation), row.words + "System error message: " + row.system);
    }
}

TEST_F(FileOperationsTest, ForbiddenCountsAsAFileAndAsNoAnswerForADirectory) {
    chmod(_directory.path().c_str(), 0755);
    chmod(at("folder").c_str(), 0);
    EXPECT_TRUE(support::holdsForAPlainUser([&] {
        const std::string name = at("folder/file");
        return ExistsFileImpl().exists(name) &&
               failureOf<ExistsDirException>([&] { ExistsDirImpl().exists(name); }).find("Error code: 13.") !=
                   std::string::npos &&
               failureOf<DeleteFileAccessDeniedException>([&] {
                   DeleteFileImpl().remove(at("file"), false);
               }).rfind("Access was denied when trying to delete the file: " + at("file") + "\n", 0) == 0;
    }));
}

TEST_F(FileOperationsTest, SizeOfAFileAlsoWhileOthersHoldIt) {
    {
        const ScopedDescriptor holder(openFile(at("file").c_str(), O_RDWR));
        fcntl(holder.get(), F_SETLEASE, F_WRLCK);
        EXPECT_EQ(SizeFileImpl().size(at("file"), true), 5u);
    }
    std::filesystem::resize_file(at("file"), 5000000000ull);
    EXPECT_EQ(SizeFileImpl().size(at("file"), false), 5000000000ull);
    EXPECT_EQ(SizeFileImpl().size(at("none"), false), 0u);
}

TEST_F(FileOperationsTest, WhatIsAsWantedAlreadyIsNoFailure) {
    CreateFolderImpl().create(at("logs/"), true);
    support::writeFile(at("logs/log.txt"), "line");
    CreateFolderImpl().create(at("logs/"), false);
    EXPECT_EQ(support::readFile(at("logs/log.txt")), "line");
    RemoveFileImpl().remove(at("logs/log.txt"));
    DeleteFileImpl().remove(at("file"), true);
    EXPECT_FALSE(std::filesystem::exists(at("logs/log.txt")) || std::filesystem::exists(at("file")));
    RemoveFileImpl().remove(at("file"));
    RemoveFileImpl().remove(at("none/none"));
    DeleteFileImpl().remove(at("file"), false);
}

TEST_F(FileOperationsTest, RemovalWithoutDescriptorsRemovesNothing) {
    {
        const support::NoDescriptorsLeft limit;
        EXPECT_THROW(RemoveFileImpl().remove(at("file")), RemoveFileException);
    }
    EXPECT_TRUE(ExistsFileImpl().exists(at("file")));
}

TEST_F(FileOperationsTest, LockOfADirectoryHasOneHolderAtATime) {
    std::optional<DirectoryLock> first(std::in_place, at("folder"));
    // A trailing slash is the same directory.
    EXPECT_EQ(
        failureOf([&] { DirectoryLock second(at("folder/")); }),
        "The directory '" + at("folder/") +
            "' is in use by another server. Stop that server, or give this one a directory of its own.");
    first.reset();
    EXPECT_NO_THROW(DirectoryLock third(at("folder")));
}

TEST_F(FileOperationsTest, PlacesOfTheProcessAreFullPaths) {
    const std::string name = ModuleImpl().fileName();
    EXPECT_EQ(name.front(), '/');
    EXPECT_EQ(std::filesystem::path(name).filename(), "test-platform");
    EXPECT_TRUE(support::holdsInAChild([&] {
        const CurrentDirectoryImpl directory;
        directory.set("/");
        const bool root = directory.get() == "/";
        directory.set(at("folder"));
        const bool inner = directory.get() == std::filesystem::canonical(at("folder")).string() + "/";
        std::filesystem::remove(at("folder"));
        return root && inner &&
               failureOf([&] { directory.get(); }) ==
                   "Couldn't get the current directory.\n\n "
                   "System error message: No such file or directory. Error code: 2.";
    }));
    // Bytes, not blocks: no disk has exabytes, and this one room for the tests.
    EXPECT_EQ(DiskSpaceImpl().free(_directory.path()) >> 60, 0u);
    EXPECT_GT(DiskSpaceImpl().free(_directory.path()), 1000000u);
}

TEST_F(FileOperationsTest, FindingGoesByMaskAttributesAndExcludes) {
    for (const char* name : {"b.xml", "a.txt", "a.xml", "c.XML", ".d.xml", "e.xml.bak"}) {
        support::writeFile(at(name), "");
    }
    std::filesystem::create_directory(at("sub.xml"));
    support::writeFile(at("sub.xml/inner.xml"), "");
    const struct {
        std::uint32_t attributes;
        std::vector<std::string> excludes;
        bool filesOnly;
        const char* expected;
    } CASES[] = {
        {FindFiles::ALL, {"a.xml"}, false, ".d.xml b.xml sub.xml "},
        {FindFiles::DIRECTORY, {}, false, "sub.xml "},
        {FindFiles::HIDDEN, {}, true, ".d.xml "},
        {FindFiles::FILE, {"b", "A.xml"}, false, ".d.xml a.xml b.xml "},
    };
    for (const auto& row : CASES) {
        std::vector<std::string> found =
            FindFilesImpl().find(_directory.path(), "*.xml", row.attributes, row.excludes, row.filesOnly);
        std::sort(found.begin(), found.end());
        std::string names;
        for (const std::string& path : found) {
            names += path.substr(_directory.path().size() + 1) + " ";
        }
        EXPECT_EQ(names, row.expected);
    }
    const auto ordered = FileEnumeratorImpl().enumerate(_directory.path() + "/", "*.xml;*.none;*.txt");
    ASSERT_EQ(ordered.size(), 4u);
    EXPECT_EQ(ordered.back(), at("a.txt"));
}

}  // namespace
