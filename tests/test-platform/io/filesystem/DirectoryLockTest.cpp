#include "io/filesystem/DirectoryLock.h"

#include <gtest/gtest.h>

#include <optional>

#include "support/TempDir.h"

namespace {

using io::filesystem::DirectoryLock;
using io::filesystem::DirectoryLockException;

TEST(DirectoryLockTest, OneHolderAtATimeAndFreeAgainAfterwards) {
    const support::TempDir folder;
    std::optional<DirectoryLock> first(std::in_place, folder.path());
    // A trailing slash is the same directory.
    EXPECT_THROW(DirectoryLock second(folder.path() + "/"), DirectoryLockException);
    first.reset();
    EXPECT_NO_THROW(DirectoryLock third(folder.path()));
}

TEST(DirectoryLockTest, RefusesWhatIsNoDirectory) {
    const support::TempDir folder;
    support::writeFile(folder.file("plain"), "x");
    for (const char* name : {"plain", "missing"}) {
        try {
            const DirectoryLock lock(folder.file(name));
            ADD_FAILURE() << name;
        } catch (const DirectoryLockException& e) {
            EXPECT_NE(std::string(e.what()).find(folder.file(name)), std::string::npos) << e.what();
        }
    }
}

}  // namespace
