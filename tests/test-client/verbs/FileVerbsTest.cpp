#include "verbs/FileVerbs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/ClientRun.h"
#include "support/OldClassifier.h"
#include "support/StoredClassifier.h"

namespace halvern::morvane::client {
namespace {

using testing::HasSubstr;

std::string textOf(const util::Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

std::string classifier(std::uint16_t count) {
    return textOf(
        support::StoredClassifier{.classes = {{"a", 0, count, 1}}, .records = {{"x", 0, count}}}.bytes());
}

TEST(FileVerbsTest, DoWhatTheySayAndReplaceNothingUnasked) {
    support::ClientRun run;
    run.write("one.dat", classifier(1));
    run.write("two.dat", classifier(2));
    std::string bytes = classifier(1);
    bytes[25] = 9;
    run.write("damaged.dat", bytes);
    bytes[38] = 3;
    run.write("refused.dat", bytes);
    run.write("Old.dat", textOf(support::OldClassifier{3, {{"a", {{}, {{"x", 2}}}}}}.bytes()));
    const struct {
        const char* line;
        int code;
        const char* words;
    } rows[] = {
        {"info @two.dat", 0, "\na             1            2\n"},
        {"info --json @Old.dat", 0, "\"dataVersion\": 3"},
        {"info @Old.dat", 0, "the file's name has capital letters"},
        {"verify @one.dat @damaged.dat @missing.dat", 5,
         "one.dat: sound, 168 bytes\n"
         "damaged.dat: damaged, 1 complaint\n"
         "  byte 25, class row 0 (\"a\"): the total is 9, and the counts of its records sum up to 1\n"
         "  The server loads it all the same.\n"
         "missing.dat: can't be verified"},
        {"verify @refused.dat", 5, "The server refuses it:"},
        {"verify @one.dat @missing.dat", 4, "missing.dat: can't be verified"},
        {"verify --json @one.dat @two.dat", 0, "\"sound\": true"},
        {"merge @one.dat @two.dat @one.dat -o @four.dat", 0, "four.dat: 1 class, 1 record, 168 bytes\n"},
        {"subtract @four.dat @one.dat -o @three.dat", 0, ""},
        {"merge @one.dat @two.dat -o @two.dat", 4, "exists already"},
        {"load - -o @two.dat", 4, "exists already"},
        {"merge @one.dat @damaged.dat -o @two.dat --force", 5, "damaged.dat is damaged"},
        {"subtract @one.dat @two.dat -o @new.dat", 5, "more than"},
        {"load @missing.jsonl -o @new.dat", 4, "can't be opened"},
        {"load @one.dat -o @new.dat", 4, "line 1: this is no JSON"},
        {"merge @one.dat @two.dat -o @missing/new.dat", 4, "No such file"},
        {"merge @one.dat -o @new.dat", 2, "FILE"},
        {"merge @one.dat - -o @new.dat", 2, ""},
        {"load @one.dat -o -", 2, ""},
        {"dump @damaged.dat", 5, "is damaged"},
        {"info @", 4, "Is a directory"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        run.line(std::string("file ") + row.line);
        EXPECT_EQ(run.exitCode, row.code);
        EXPECT_THAT(run.out + run.err, HasSubstr(row.words));
        EXPECT_EQ(support::readFile(run.folder.file("two.dat")), classifier(2));
        EXPECT_EQ(support::readFile(run.folder.file("new.dat")), "");
    }
    EXPECT_EQ(support::readFile(run.folder.file("four.dat")), classifier(4));
    EXPECT_EQ(support::readFile(run.folder.file("three.dat")), classifier(3));
    run.input = run.line("file dump @four.dat").out;
    EXPECT_EQ(run.line("file load - -o @two.dat --force").exitCode, 0) << run.err;
    EXPECT_EQ(support::readFile(run.folder.file("two.dat")), classifier(4));
}

}  // namespace
}  // namespace halvern::morvane::client
