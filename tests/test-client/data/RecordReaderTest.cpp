#include "data/RecordReader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <vector>

#include "support/ClientRun.h"

namespace halvern::morvane::client {
namespace {

// "label|text" for a record that can be used, "place! problem" for one that can't.
std::vector<std::string> readAll(const RecordSource& source) {
    const std::unique_ptr<RecordReader> reader = openRecords(source);
    std::vector<std::string> all;
    for (Record record; reader->next(record);) {
        all.push_back(record.problem.empty() ? record.label + "|" + record.text
                                             : record.place + "! " + record.problem);
    }
    return all;
}

class RecordReaderTest : public testing::Test {
protected:
    std::vector<std::string> read(const std::string& name, const std::string& content,
                                  RecordSource source = {}) {
        support::writeFile(_folder.file(name), content);
        source.path = _folder.file(name);
        return readAll(source);
    }

    support::TempDir _folder;
};

using Rows = std::vector<std::string>;

TEST_F(RecordReaderTest, TsvTakesAllBehindTheFirstTabAsTheText) {
    EXPECT_EQ(read("a.tsv", "\xef\xbb\xbfham\tone\r\nspam\ttwo\tmore\n\nham\t\nno tab\n\tlost\nlast\tline"),
              (Rows{"ham|one", "spam|two\tmore", "ham|", "line 5! has no tab between label and text",
                    "line 6! has an empty label", "last|line"}));
    EXPECT_EQ(read("b.tsv", "a\t1\tx\nb\t2\n", {.textColumn = "3"}),
              (Rows{"a|x", "line 2! has 2 fields, and the label or the text is field 3"}));
    EXPECT_EQ(read("c.tsv", "text\tid\tkind\nx\t1\ta\n", {.labelColumn = "kind", .tsvHeader = true}),
              (Rows{"a|x"}));
}

TEST_F(RecordReaderTest, CsvIsReadAsTheRfcSays) {
    const std::pair<const char*, Rows> cases[] = {
        {"label,text\r\na,x\r\n", {"a|x"}},
        {"text,n,Label\nx,1,a\n", {"a|x"}},
        {"kind,message\na,x\n", {"a|x"}},
        {"label,text\na,\"x,\"\"y\"\"\r\nz\"\n", {"a|x,\"y\"\r\nz"}},
        {"label,text\na,\"\"\n\nb,\n", {"a|", "b|"}},
        {"label,text\ra,x\rb,y", {"a|x", "b|y"}},
        // A row that breaks the rules costs itself alone, and the numbers of lines go on through quoted line
        // ends.
        {"label,text\na,\"x\ny\"\nb,p\"q\",r\nc,\"x\"y,z\nd,x\n\"e\",\"f",
         {"a|x\ny", "line 4! has a quote inside a field that isn't quoted",
          "line 5! has something behind the closing quote of a field", "d|x",
          "line 7! has a quoted field that begins in line 7 and never ends"}},
        {"label,text\na,\"x\nb,y\nc,\"z\"\nd,w\n",
         {"line 2! has something behind the closing quote of a field that goes from line 2 to line 4",
          "d|w"}},
        {"label,text\na,hello, world\nb,x,,\n", {"line 2! has 3 fields, and there are 2 columns", "b|x"}},
        {"label,text\na\n", {"line 2! has 1 field, and the label or the text is field 2"}},
        {"", {}},
    };
    for (const auto& [content, records] : cases) {
        EXPECT_EQ(read("a.csv", content), records) << content;
    }
    EXPECT_EQ(read("b.csv", "x,y;a\n",
                   {.labelColumn = "2", .textColumn = "1", .delimiter = ';', .hasHeader = false}),
              (Rows{"a|x,y"}));
    // A field that crosses the reader's buffer is whole.
    const std::string large(200001, 'x');
    EXPECT_EQ(read("c.csv", "label,text\r\na,\"" + large + "\"\r\nb,y\r\n"), (Rows{"a|" + large, "b|y"}));
}

TEST_F(RecordReaderTest, WhatCanNotBeReadAsItIsMeantIsRefused) {
    const struct {
        const char* name;
        const char* content;
        RecordSource source;
        const char* words;
    } cases[] = {
        {"a.csv", "id,kind,message\n1,a,x\n", {}, "'id' 'kind' 'message'"},
        {"a.csv", "label,text\na,x\n", {.textColumn = "body"}, "'body'"},
        {"a.csv", "label,text\na,x\n", {.textColumn = "1"}, "same column"},
        {"a.csv", "a,x\n", {.labelColumn = "kind", .hasHeader = false}, "no column 'kind'"},
        {"a.csv", "label,text\na,x\nb,\"y\nc,z\nd,w\n", {}, "line 3 is never closed, so that all 3"},
        {"a.tsv", "\xff\xfeh", {}, "UTF-16"},
        {"a.xlsx", "", {}, "Nothing tells which format"},
        {"csv", "", {}, "Nothing tells which format"},
    };
    for (const auto& each : cases) {
        const Failure failure = support::clientFailureOf([&] { read(each.name, each.content, each.source); });
        EXPECT_NE(failure.message.find(each.words), std::string::npos) << failure.message;
    }
}

TEST_F(RecordReaderTest, JsonLinesGiveTheMembersThatTheSourceNames) {
    const Rows records = read("a.JSON",
                              "{\"kind\":true,\"text\":\"x\\n\\u00e9\"}\r\nnonsense\n[1]\n{\"kind\":\"a\"}\n"
                              "{\"kind\":{},\"text\":\"x\"}\n{\"kind\":\"a\",\"text\":1}\n\n"
                              "{\"text\":\"x\",\"kind\":3}",
                              {.labelColumn = "kind"});
    ASSERT_EQ(records.size(), 7u);
    EXPECT_EQ(records[0], "true|x\n\xc3\xa9");
    for (std::size_t i = 1; i < 6; ++i) {
        EXPECT_TRUE(records[i].starts_with("line " + std::to_string(i + 1) + "! ")) << records[i];
    }
    EXPECT_EQ(records[6], "3|x");
}

TEST_F(RecordReaderTest, FolderGivesOneTextForEachFileOfAClass) {
    namespace fs = std::filesystem;
    const std::string root = _folder.file("mails");
    for (const char* folder : {"spam/2024", "ham", "spam/.git", ".hidden"}) {
        fs::create_directories(root + "/" + folder);
    }
    support::writeFile(root + "/spam/b.txt", "two\n");
    support::writeFile(root + "/spam/2024/a.txt", "one");
    support::writeFile(root + "/ham/c", "");
    support::writeFile(root + "/README", "passed over");
    support::writeFile(root + "/ham/.hidden", "passed over");
    support::writeFile(root + "/spam/.git/x", "passed over");
    support::writeFile(root + "/.hidden/x", "passed over");
    const RecordSource source{.path = root};
    EXPECT_EQ(readAll(source), (Rows{"ham|", "spam|one", "spam|two\n"}));
    const std::string before = fingerprintOf(source);
    support::writeFile(root + "/README", "other");
    EXPECT_EQ(fingerprintOf(source), before);
    fs::rename(root + "/ham/c", root + "/ham/d");
    EXPECT_NE(fingerprintOf(source), before);
    const std::string renamed = fingerprintOf(source);
    support::writeFile(root + "/spam/b.txt", "owt\n");
    EXPECT_NE(fingerprintOf(source), renamed);
}

TEST_F(RecordReaderTest, FingerprintSeesEveryByte) {
    const RecordSource source{.path = _folder.file("a.csv")};
    std::set<std::string> seen;
    for (const char* content : {"a,x\n", "b,x\n", "a,x\r\n", "a,y\n", "a,x", ""}) {
        support::writeFile(source.path, content);
        EXPECT_TRUE(seen.insert(fingerprintOf(source)).second) << content;
    }
}

TEST(LabelTest, OnlyNamesThatComeBackFromTheServerAsTheyWereAreTaken) {
    EXPECT_EQ(problemOfLabel(std::string(256, 'x')), "");
    EXPECT_NE(problemOfLabel(std::string(257, 'x')), "");
    EXPECT_EQ(problemOfLabel("caf\xc3\xa9 & co"), "");
    for (const char* label : {"caf\xe9", "a\x7f", "a\nb", "\xef\xbf\xbe", ""}) {
        EXPECT_NE(problemOfLabel(label), "") << label;
    }
}

}  // namespace
}  // namespace halvern::morvane::client
