#include "verbs/FileVerbs.h"

#include <gtest/gtest.h>

#include <sstream>

#include "Program.h"
#include "support/OldClassifier.h"
#include "support/StoredClassifier.h"
#include "support/TempDir.h"

namespace halvern::morvane::client {
namespace {

std::string textOf(const util::Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

std::string classifier(std::uint16_t count) {
    return textOf(
        support::StoredClassifier{.classes = {{"a", 0, count, 1}}, .records = {{"x", 0, count}}}.bytes());
}

// A folder with files, and the program that works on them.
class FileVerbsTest : public testing::Test {
protected:
    FileVerbsTest() {
        support::writeFile(folder.file("one.dat"), classifier(1));
        support::writeFile(folder.file("two.dat"), classifier(2));
        std::string damaged = classifier(1);
        damaged[25] = 9;
        support::writeFile(folder.file("damaged.dat"), damaged);
        damaged = classifier(1);
        damaged[38] = 3;
        support::writeFile(folder.file("refused.dat"), damaged);
    }

    // "file" and the words, in which "@" stands for the folder. Standard output and errors go to said.
    int run(const std::string& words, const std::string& input = "") {
        std::vector<std::string> arguments{"file"};
        std::istringstream split(words);
        for (std::string word; split >> word;) {
            arguments.push_back(word[0] == '@' ? folder.path() + word.substr(1) : word);
        }
        std::istringstream in(input);
        std::ostringstream out;
        Program program({in, out, out, {}, {}, [](const std::string&) { return std::nullopt; }, {}, ""});
        const int code = program.run(arguments);
        said = out.str();
        for (std::size_t at = 0; (at = said.find(folder.path() + "/", at)) != std::string::npos;) {
            said.replace(at, folder.path().size() + 1, "");
        }
        return code;
    }

    support::TempDir folder;
    std::string said;
};

TEST_F(FileVerbsTest, TellWhatAFileHolds) {
    EXPECT_EQ(run("info @/two.dat"), 0);
    EXPECT_EQ(said,
              "File         two.dat, 168 bytes\n"
              "Data version 5\n"
              "Extractor    5\n"
              "Smoothing    0.05\n"
              "Records      1\n"
              "\n"
              "CLASS  FEATURES  OCCURRENCES\n"
              "a             1            2\n"
              "\n"
              "FEATURES OF  RECORDS  RECORD BYTES\n"
              "     1 byte        1             7\n");
    support::writeFile(folder.file("Old.dat"),
                       textOf(support::OldClassifier{3, {{"a", {{}, {{"x", 2}}}}}}.bytes()));
    EXPECT_EQ(run("info --json @/Old.dat"), 0);
    EXPECT_NE(said.find("\"dataVersion\": 3"), std::string::npos) << said;
    EXPECT_NE(said.find("the file's name has capital letters"), std::string::npos) << said;
}

TEST_F(FileVerbsTest, VerifyAllFilesAndTellWhatTheServerDoesWithBadOnes) {
    EXPECT_EQ(run("verify @/one.dat @/damaged.dat @/missing.dat @/refused.dat"), 5);
    EXPECT_EQ(said.substr(0, said.find("missing.dat")),
              "one.dat: sound, 168 bytes\n"
              "damaged.dat: damaged, 1 complaint\n"
              "  byte 25, class row 0 (\"a\"): the total is 9, and the counts of its records sum up to 1\n"
              "  The server loads it all the same.\n");
    EXPECT_NE(said.find("missing.dat: can't be verified"), std::string::npos) << said;
    EXPECT_NE(said.find("The server refuses it:"), std::string::npos) << said;
    EXPECT_EQ(run("verify @/one.dat @/missing.dat"), 4);
    EXPECT_EQ(run("verify --json @/one.dat @/two.dat"), 0);
    EXPECT_NE(said.find("\"sound\": true"), std::string::npos) << said;
}

TEST_F(FileVerbsTest, CalculateWithFiles) {
    EXPECT_EQ(run("merge @/one.dat @/two.dat @/one.dat -o @/four.dat"), 0);
    EXPECT_EQ(support::readFile(folder.file("four.dat")), classifier(4));
    EXPECT_EQ(said, "four.dat: 1 class, 1 record, 168 bytes\n");
    EXPECT_EQ(run("subtract @/four.dat @/one.dat -o @/three.dat"), 0);
    EXPECT_EQ(support::readFile(folder.file("three.dat")), classifier(3));
}

TEST_F(FileVerbsTest, DumpAndLoadThroughAPipe) {
    EXPECT_EQ(run("dump @/two.dat"), 0);
    EXPECT_EQ(run("load - -o @/copy.dat", said), 0);
    EXPECT_EQ(support::readFile(folder.file("copy.dat")), classifier(2));
}

TEST_F(FileVerbsTest, LeaveAsItIsWhatTheyMayNotReplace) {
    const struct {
        const char* words;
        int code;
    } refusals[] = {
        {"merge @/one.dat @/two.dat -o @/two.dat", 4},
        {"load - -o @/two.dat", 4},
        {"merge @/one.dat @/damaged.dat -o @/two.dat --force", 5},
        {"subtract @/one.dat @/two.dat -o @/two.dat --force", 5},
        {"subtract @/one.dat @/two.dat -o @/new.dat", 5},
        {"load @/missing.jsonl -o @/new.dat", 4},
        {"load @/one.dat -o @/new.dat", 4},
        {"merge @/one.dat @/two.dat -o @/missing/new.dat", 4},
        {"merge @/one.dat -o @/new.dat", 2},
        {"merge @/one.dat - -o @/new.dat", 2},
        {"load @/one.dat -o -", 2},
        {"dump @/damaged.dat", 5},
        {"info @/damaged.dat", 5},
        {"info @/", 4},
        {"", 2},
    };
    for (const auto& each : refusals) {
        EXPECT_EQ(run(each.words), each.code) << each.words << "\n" << said;
        EXPECT_EQ(said.rfind("morvane: ", 0), 0) << said;
        EXPECT_EQ(support::readFile(folder.file("two.dat")), classifier(2)) << each.words;
        EXPECT_EQ(support::readFile(folder.file("new.dat")), "") << each.words;
    }
    EXPECT_EQ(run("merge @/one.dat @/two.dat -o @/two.dat --force"), 0);
    EXPECT_EQ(support::readFile(folder.file("two.dat")), classifier(3));
}

}  // namespace
}  // namespace halvern::morvane::client
