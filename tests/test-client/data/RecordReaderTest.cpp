#include "data/RecordReader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "Failure.h"
#include "support/TempDir.h"

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

    // The message of the failure that reading ends with.
    std::string failure(const std::string& name, const std::string& content,
                        const RecordSource& source = {}) {
        try {
            read(name, content, source);
        } catch (const Failure& e) {
            return e.message;
        }
        return "";
    }

    support::TempDir _folder;
};

using Rows = std::vector<std::string>;

TEST_F(RecordReaderTest, TsvTakesAllBehindTheFirstTabAsTheText) {
    EXPECT_EQ(read("a.tsv", "ham\tone\r\nspam\ttwo\tmore\n\nham\t\nno tab\n\tlost\na\x01\tx\nlast\tline"),
              (Rows{"ham|one", "spam|two\tmore", "ham|", "line 5! has no tab between label and text",
                    "line 6! has an empty label", "line 7! has the control character 0x01 in its label",
                    "last|line"}));
    EXPECT_EQ(read("bom.tsv", "\xef\xbb\xbfham\tone\n"), (Rows{"ham|one"}));
    EXPECT_EQ(read("empty.tsv", ""), Rows());
    RecordSource source;
    source.textColumn = "3";
    EXPECT_EQ(read("b.tsv", "a\t1\tx\nb\t2\n", source),
              (Rows{"a|x", "line 2! has 2 fields, and the label or the text is field 3"}));
    source = {};
    source.tsvHeader = true;
    source.labelColumn = "kind";
    EXPECT_EQ(read("c.tsv", "text\tid\tkind\nx\t1\ta\n", source), (Rows{"a|x"}));
    EXPECT_NE(failure("d.tsv", "\xff\xfeh\0", {}), "") << "UTF-16 would be read as rubbish";
}

TEST_F(RecordReaderTest, CsvIsReadAsTheRfcSays) {
    struct Case {
        const char* content;
        Rows records;
    };
    const Case cases[] = {
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
    for (const Case& one : cases) {
        EXPECT_EQ(read("a.csv", one.content), one.records) << one.content;
    }
    // All of these would be lost as one record.
    EXPECT_NE(
        failure("a.csv", "label,text\na,x\nb,\"y\nc,z\nd,w\n").find("line 3 is never closed, so that all 3"),
        std::string::npos);
    RecordSource source;
    source.hasHeader = false;
    source.delimiter = ';';
    source.labelColumn = "2";
    source.textColumn = "1";
    EXPECT_EQ(read("b.csv", "x,y;a\n", source), (Rows{"a|x,y"}));
    // A field that crosses the reader's buffer is whole.
    const std::string large(200001, 'x');
    EXPECT_EQ(read("c.csv", "label,text\r\na,\"" + large + "\"\r\nb,y\r\n"), (Rows{"a|" + large, "b|y"}));
}

TEST_F(RecordReaderTest, ColumnsThatAreNotThereAreNamedWithThoseThatAre) {
    EXPECT_NE(failure("a.csv", "id,kind,message\n1,a,x\n").find("'id' 'kind' 'message'"), std::string::npos);
    RecordSource source;
    source.textColumn = "body";
    EXPECT_NE(failure("a.csv", "label,text\na,x\n", source).find("'body'"), std::string::npos);
    source.textColumn = "1";
    EXPECT_NE(failure("a.csv", "label,text\na,x\n", source), "") << "label and text in one column";
    source = {};
    source.labelColumn = "kind";
    source.hasHeader = false;
    EXPECT_NE(failure("a.csv", "a,x\n", source), "") << "a name without a header";
}

TEST_F(RecordReaderTest, JsonLinesGiveTheMembersThatTheSourceNames) {
    EXPECT_EQ(
        read("a.jsonl", "{\"label\":\"a\",\"text\":\"x\\n\\u00e9\"}\n\n{\"text\":\"y\",\"label\":3}\r\n"),
        (Rows{"a|x\n\xc3\xa9", "3|y"}));
    RecordSource source;
    source.labelColumn = "kind";
    const Rows records = read(
        "b.ndjson",
        "{\"kind\":true,\"text\":\"x\"}\nnonsense\n[1]\n{\"kind\":\"a\"}\n{\"kind\":{},\"text\":\"x\"}\n"
        "{\"kind\":\"a\",\"text\":1}\n{\"kind\":\"a\",\"text\":\"\xff\"}\n{\"kind\":\"z\",\"text\":\"x\"}",
        source);
    ASSERT_EQ(records.size(), 8u);
    EXPECT_EQ(records[0], "true|x");
    for (std::size_t i = 1; i < 7; ++i) {
        EXPECT_TRUE(records[i].starts_with("line " + std::to_string(i + 1) + "! ")) << records[i];
    }
    EXPECT_EQ(records[7], "z|x");
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
    RecordSource source;
    source.path = root;
    EXPECT_EQ(readAll(source), (Rows{"ham|", "spam|one", "spam|two\n"}));
    const std::string before = fingerprintOf(source);
    support::writeFile(root + "/README", "other");
    EXPECT_EQ(fingerprintOf(source), before);
    fs::rename(root + "/ham/c", root + "/ham/d");
    EXPECT_NE(fingerprintOf(source), before);
    source.path = _folder.file("missing");
    EXPECT_THROW(readAll(source), Failure);
}

TEST_F(RecordReaderTest, FormatComesFromTheNameUnlessItIsGiven) {
    RecordSource source;
    for (const auto& [path, format] :
         std::vector<std::pair<std::string, RecordFormat>>{{"a.CSV", RecordFormat::CSV},
                                                           {"b.txt", RecordFormat::TSV},
                                                           {"c.d/e.json", RecordFormat::JSONL}}) {
        source.path = path;
        EXPECT_EQ(formatOf(source), format) << path;
    }
    for (const char* path : {"a.xlsx", "a", "csv"}) {
        source.path = path;
        EXPECT_THROW(formatOf(source), Failure) << path;
    }
    source.format = "csv";
    EXPECT_EQ(formatOf(source), RecordFormat::CSV);
}

TEST_F(RecordReaderTest, FingerprintSeesEveryByte) {
    RecordSource source;
    source.path = _folder.file("a.csv");
    std::vector<std::string> seen;
    for (const char* content : {"a,x\n", "a,x\r\n", "a,y\n", "a,x", ""}) {
        support::writeFile(source.path, content);
        const std::string fingerprint = fingerprintOf(source);
        EXPECT_EQ(std::count(seen.begin(), seen.end(), fingerprint), 0) << content;
        seen.push_back(fingerprint);
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
