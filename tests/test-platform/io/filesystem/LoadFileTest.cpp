#include "io/filesystem/LoadFile.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/Failure.h"
#include "support/TempDir.h"

namespace io::filesystem {
namespace {

TEST(LoadFileTest, GivesTheWholeFileOrItsBeginningOrTellsWhatWasTriedWhereAndWhy) {
    const support::TempDir directory;
    const std::string five("a\0\r\n\xff", 5);
    support::writeFile(directory.file("five"), five);
    support::writeFile(directory.file("empty"), "");
    support::writeFile(directory.file("huge"), "");
    std::filesystem::resize_file(directory.file("huge"), 0x80000000ull);
    const std::string opening = "An error occurred when trying to open the file for reading.";
    const struct {
        const char* name;
        std::uint32_t bytes;
        std::string contentOrMessage;
        const char* system;  // null if the file can be read
        const char* cause;
    } CASES[] = {
        {"five", 0, five, nullptr, nullptr},
        {"five", 3, five.substr(0, 3), nullptr, nullptr},
        {"empty", 0, "", nullptr, nullptr},
        // The limit goes by what is to be read, not by the size of the file.
        {"huge", 4, std::string(4, '\0'), nullptr, nullptr},
        {"none", 0, opening, "No such file or directory. Error code: 2.", "The system call 'open' failed."},
        {".", 0, opening, "Is a directory. Error code: 21.", "None."},
        {"five", 10,
         "Tried to read a larger number of bytes from a file that it contained. Tried to read : 10 File "
         "size: 5",
         "Success. Error code: 0.", "None."},
        {"huge", 0,
         "Could not load the file because the file size was too big. The file size is 2147483648. The file "
         "cannot be bigger than 2147483647 bytes.",
         "Success. Error code: 0.", "None."},
    };
    for (const auto& row : CASES) {
        const std::string name = directory.file(row.name);
        util::Bytes data;
        const std::string failure =
            support::failureOf<LoadFileException>([&] { data = LoadFileImpl().load(name, row.bytes); });
        if (row.system == nullptr) {
            EXPECT_EQ(failure + std::string(data.begin(), data.end()), "no failure" + row.contentOrMessage);
        } else {
            EXPECT_EQ(failure,
                      row.contentOrMessage + "\nFilename: '" + name + "'. \nCurrent Working Directory: '" +
                          std::filesystem::current_path().string() +
                          "/'.\nSystem error message: " + row.system + "\nC++ exception: " + row.cause);
        }
    }
}

}  // namespace
}  // namespace io::filesystem
