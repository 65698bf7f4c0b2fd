#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "io/filesystem/ExistsDir.h"
#include "io/filesystem/ExistsFile.h"
#include "io/filesystem/LoadFile.h"
#include "io/filesystem/RemoveFile.h"
#include "io/filesystem/SizeFile.h"
#include "support/Descriptors.h"
#include "support/Failure.h"
#include "support/TempDir.h"
#include "windows/file/CreateFolder.h"
#include "windows/file/DiskSpace.h"

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
    // Forbidden counts as a file, and as no answer for a directory.
    chmod(_directory.path().c_str(), 0755);
    chmod(at("folder").c_str(), 0);
    EXPECT_TRUE(support::holdsForAPlainUser([&] {
        const auto isDirectory = [&] { ExistsDirImpl().exists(at("folder/file")); };
        return ExistsFileImpl().exists(at("folder/file")) &&
               failureOf<ExistsDirException>(isDirectory).ends_with("Error code: 13.");
    }));
}

TEST_F(FileOperationsTest, FileIsLoadedWholeOrItsBeginningOrRefusedWithAReason) {
    const std::string five("a\0\r\n\xff", 5);
    support::writeFile(at("five"), five);
    support::writeFile(at("empty"), "");
    support::writeFile(at("huge"), "");
    std::filesystem::resize_file(at("huge"), 5'000'000'000);
    const struct {
        const char* name;
        std::uint32_t bytes;
        std::string contentOrReason;
    } CASES[] = {
        {"five", 0, five},
        {"five", 3, five.substr(0, 3)},
        {"empty", 0, ""},
        // The limit goes by what is to be read, not by the size of the file.
        {"huge", 4, std::string(4, '\0')},
        {"none", 0, "No such file or directory. Error code: 2."},
        {".", 0, "Is a directory. Error code: 21."},
        {"five", 10, "Tried to read : 10 File size: 5"},
        {"huge", 0, "The file size is 5000000000."},
    };
    for (const auto& row : CASES) {
        util::Bytes data;
        const std::string failure =
            failureOf<LoadFileException>([&] { data = LoadFileImpl().load(at(row.name), row.bytes); });
        EXPECT_THAT(failure + std::string(data.begin(), data.end()),
                    testing::AnyOf("no failure" + row.contentOrReason,
                                   testing::AllOf(testing::HasSubstr("Filename: '" + at(row.name) + "'"),
                                                  testing::HasSubstr(row.contentOrReason))))
            << row.name;
    }
    EXPECT_EQ(SizeFileImpl().size(at("huge"), true), 5'000'000'000u);
    EXPECT_EQ(SizeFileImpl().size(at("none"), false), 0u);
    EXPECT_THROW(SizeFileImpl().size(at("folder"), false), exceptions::Exception);
    // Bytes, not blocks: no disk has exabytes, and this one room for the tests.
    EXPECT_EQ(DiskSpaceImpl().free(_directory.path()) >> 60, 0u);
    EXPECT_GT(DiskSpaceImpl().free(_directory.path()), 1000000u);
}

TEST_F(FileOperationsTest, RemovalWithoutDescriptorsRemovesNothing) {
    {
        const support::NoDescriptorsLeft limit;
        EXPECT_THROW(RemoveFileImpl().remove(at("file")), RemoveFileException);
    }
    EXPECT_THROW(RemoveFileImpl().remove(at("folder")), RemoveFileException);
    EXPECT_TRUE(ExistsFileImpl().exists(at("file")));
    // What is as wanted already is no failure.
    CreateFolderImpl().create(at("folder"), false);
    for (int round = 0; round < 2; ++round) {
        RemoveFileImpl().remove(at("file"));
        EXPECT_FALSE(std::filesystem::exists(at("file")));
    }
}

}  // namespace
