#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include "io/filesystem/ExistsDir.h"
#include "io/filesystem/ExistsFile.h"
#include "io/filesystem/FileSystemHelper.h"
#include "io/filesystem/LoadFile.h"
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
    } CASES[] = {{at("file"), true, false},       {at("folder/"), false, true},
                 {at("none/none"), false, false}, {at("file/none"), false, false},
                 {at("dangling"), false, false},  {at(std::string(300, 'x')), false, false}};
    for (const auto& row : CASES) {
        EXPECT_EQ(ExistsFileImpl().exists(row.name), row.file) << row.name;
        EXPECT_EQ(ExistsDirImpl().exists(row.name), row.directory) << row.name;
    }
}

TEST_F(FileOperationsTest, FailureSaysWhatWasTriedAndWhy) {
    const std::string none = at("none");
    const std::string folder = at("folder");
    const char* const MISSING = "No such file or directory. Error code: 2.";
    const char* const IS_DIRECTORY = "Is a directory. Error code: 21.";
    const struct {
        std::function<void()> operation;
        std::string words;
        const char* system;
    } CASES[] = {
        {[&] { ExistsDirImpl().exists(at("loop")); },
         "An error occured when checking if the directory \" " + at("loop") + "\" exists. ",
         "Too many levels of symbolic links. Error code: 40."},
        {[&] { SizeFileImpl().size(folder, false); },
         "Failed to open '" + folder + "' while getting file size.\n", IS_DIRECTORY},
        {[&] { RemoveFileImpl().remove(folder); },
         "Couldn't delete the file '" + folder + "' file using the 'DeleteFile' system call.\n",
         IS_DIRECTORY},
        {[&] { CreateFolderImpl().create(folder, true); },
         "Could not create the directory: " + folder + ".\n\n", "File exists. Error code: 17."},
        {[&] { DeleteFileImpl().remove(none, true); }, "Couldn't delete the file: " + none + "\n", MISSING},
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
    // Forbidden counts as a file, and as no answer for a directory.
    chmod(_directory.path().c_str(), 0755);
    chmod(folder.c_str(), 0);
    EXPECT_TRUE(support::holdsForAPlainUser([&] {
        const auto isDirectory = [&] { ExistsDirImpl().exists(at("folder/file")); };
        return ExistsFileImpl().exists(at("folder/file")) &&
               failureOf<ExistsDirException>(isDirectory).ends_with("Error code: 13.");
    }));
}

TEST_F(FileOperationsTest, FileThatOthersHoldHasASizeAndIsALockViolationToAReader) {
    std::filesystem::resize_file(at("file"), 5000000000ull);
    // The kernel asks the holder for the lease with this signal, whose default action is to end the process.
    const auto previous = std::signal(SIGIO, SIG_IGN);
    const ScopedDescriptor holder(openFile(at("file").c_str(), O_RDWR));
    if (fcntl(holder.get(), F_SETLEASE, F_WRLCK) == 0) {
        const auto loading = [&] { LoadFileImpl().load(at("file")); };
        EXPECT_EQ(failureOf<LoadFileLockedViolationException>(loading).rfind(
                      "A file lock violation occurred when trying to open the file for reading.\n", 0),
                  0u);
    }
    EXPECT_EQ(SizeFileImpl().size(at("file"), true), 5000000000ull);
    EXPECT_EQ(SizeFileImpl().size(at("none"), false), 0u);
    std::signal(SIGIO, previous);
}

TEST_F(FileOperationsTest, RemovalWithoutDescriptorsRemovesNothing) {
    {
        const support::NoDescriptorsLeft limit;
        EXPECT_THROW(RemoveFileImpl().remove(at("file")), RemoveFileException);
    }
    EXPECT_TRUE(ExistsFileImpl().exists(at("file")));
    // What is as wanted already is no failure.
    CreateFolderImpl().create(at("folder"), false);
    DeleteFileImpl().remove(at("none"), false);
    for (int round = 0; round < 2; ++round) {
        RemoveFileImpl().remove(at("file"));
        EXPECT_FALSE(std::filesystem::exists(at("file")));
    }
}

TEST_F(FileOperationsTest, PlacesOfTheProcessAreFullPaths) {
    EXPECT_EQ(ModuleImpl().fileName(), std::filesystem::canonical("/proc/self/exe"));
    EXPECT_TRUE(support::holdsInAChild([&] {
        CurrentDirectoryImpl().set(at("folder"));
        return CurrentDirectoryImpl().get() == std::filesystem::canonical(at("folder")).string() + "/";
    }));
    // Bytes, not blocks: no disk has exabytes, and this one room for the tests.
    EXPECT_EQ(DiskSpaceImpl().free(_directory.path()) >> 60, 0u);
    EXPECT_GT(DiskSpaceImpl().free(_directory.path()), 1000000u);
}

TEST_F(FileOperationsTest, FindingGoesByMaskAttributesAndExcludes) {
    for (const char* name : {"b.xml", "a.xml", "c.XML", ".d.xml", "e.xml.bak"}) {
        support::writeFile(at(name), "");
    }
    std::filesystem::create_directory(at("sub.xml"));
    support::writeFile(at("sub.xml/inner.xml"), "");
    const auto found = [&](std::uint32_t attributes, bool filesOnly) {
        return FindFilesImpl().find(_directory.path(), "*.xml", attributes, {"a.xml", "B.xml"}, filesOnly);
    };
    using testing::UnorderedElementsAre;
    EXPECT_THAT(found(FindFiles::ALL, false), UnorderedElementsAre(at(".d.xml"), at("b.xml"), at("sub.xml")));
    EXPECT_THAT(found(FindFiles::DIRECTORY, false), UnorderedElementsAre(at("sub.xml")));
    EXPECT_THAT(found(FindFiles::HIDDEN, true), UnorderedElementsAre(at(".d.xml")));
    EXPECT_EQ(FileEnumeratorImpl().enumerate(_directory.path() + "/", "*.xml;*.none;*.bak").back(),
              at("e.xml.bak"));
}

}  // namespace
