#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <thread>

#include "support/ClientRun.h"
#include "support/ServerInMemory.h"

namespace halvern::morvane::client {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class ImportVerbTest : public testing::Test, protected support::ClientRun {
protected:
    ImportVerbTest() {
        environment["XDG_STATE_HOME"] = folder.path();
        answer = [this](const std::string& request) { return server.answer(request); };
    }

    support::ServerInMemory server;
};

TEST_F(ImportVerbTest, TheSameTextsAreLearnedFromEveryForm) {
    for (const char* name : {"mails/ham", "mails/spam"}) {
        std::filesystem::create_directories(folder.file(name));
    }
    write("mails/ham/1", "see you,\n\"at five\"");
    write("mails/ham/2", "caf\xc3\xa9");
    write("mails/spam/1", "win a prize");
    const std::string csv =
        "text,kind\r\n\"see you,\n\"\"at five\"\"\",ham\r\ncaf\xc3\xa9,ham\r\nwin a prize,spam\r\n";
    write("a.csv", csv);
    input =
        "{\"label\":\"ham\",\"text\":\"see you,\\n\\\"at five\\\"\"}\n"
        "{\"label\":\"ham\",\"text\":\"caf\\u00e9\"}\n"
        "{\"label\":\"spam\",\"text\":\"win a prize\"}\n";
    // A pipe, whose bytes can be read once.
    ASSERT_EQ(::mkfifo(folder.file("pipe.csv").c_str(), 0600), 0);
    std::thread writer([&] { write("pipe.csv", csv); });
    for (const char* words : {"folder @mails/", "csv @a.csv --label-column kind", "jsonl - --format jsonl",
                              "piped @pipe.csv --label-column kind"}) {
        EXPECT_EQ(line(std::string("import --create ") + words).exitCode, 0) << words << ": " << err;
    }
    writer.join();
    for (const char* other : {"csv", "jsonl", "piped"}) {
        EXPECT_EQ(server.stored("folder"), server.stored(other)) << other;
    }
    for (const auto& left : std::filesystem::directory_iterator(folder.file("morvane"))) {
        EXPECT_FALSE(left.path().filename().string().starts_with("import")) << left.path();
    }
}

TEST_F(ImportVerbTest, NothingIsSentBeforeAllOfTheInputIsKnownToBeSound) {
    write("a.tsv", "ham\tone\nspam\ttwo\nno tab\nham\t\xff\n");
    const std::tuple<const char*, int, const char*> rows[] = {
        {"c @a.tsv --create", 4, "line 3 has no tab"},
        {"c @a.tsv --dry-run", 4, "1 text isn't in UTF-8"},
        {"c @a.tsv --dry-run --skip-bad", 0, "3 texts of 2 classes; nothing was sent"},
        {"c @missing.tsv", 4, "missing.tsv"},
        {"c -", 2, "format"},
        {"a/b @a.tsv", 2, "can't be the name"},
        {"c @a.tsv --batch 0", 2, "--batch"},
        {"c @a.tsv --assume maybe", 2, "--assume"},
        {"c @a.tsv --delimiter ;;", 2, "--delimiter"},
    };
    for (const auto& [words, code, message] : rows) {
        EXPECT_EQ(line(std::string("import ") + words).exitCode, code) << words;
        EXPECT_THAT(out + err, HasSubstr(message)) << words;
        EXPECT_TRUE(requests.empty()) << words;
    }
    EXPECT_EQ(line("import c @a.tsv --dry-run --json").exitCode, 4);
    EXPECT_EQ(json::parse(out), json::parse(R"({"records": 4, "bad": 1, "notUtf8": 1,
        "classes": [{"name": "ham", "texts": 2, "bytes": 4}, {"name": "spam", "texts": 1, "bytes": 3}],
        "problems": ["line 3 has no tab between label and text"]})"));
    EXPECT_EQ(line("import c @a.tsv --skip-bad").exitCode, 1) << "Nobody asked for it to be made";
    EXPECT_EQ(line("import c @a.tsv --create --skip-bad --json").exitCode, 0);
    EXPECT_EQ(json::parse(out)["skipped"], 1);
    EXPECT_EQ(json::parse(out)["texts"], 3);
}

TEST_F(ImportVerbTest, InterruptedImportGoesOnOnlyWithTheSameInput) {
    const std::string texts = "ham\tone\nspam\ttwo\nham\t" + std::string(3000, 'x') + "\n";
    write("a.tsv", texts);
    server.maxInput = 2000;
    const std::string command = "import c @a.tsv --create --batch 1";
    EXPECT_EQ(line(command).exitCode, 1);
    EXPECT_THAT(err, HasSubstr("line 3"));
    write("a.tsv", "ham\tone\nspam\ttwo\nham\tshort\n");
    EXPECT_EQ(line(command).exitCode, 5);
    EXPECT_THAT(err, HasSubstr("has changed"));
    write("a.tsv", texts);
    EXPECT_EQ(line(command + " --text-column 2").exitCode, 5);
    EXPECT_EQ(line("import d @a.tsv --create --batch 1 --journal @j").exitCode, 1);
    EXPECT_EQ(line("import e @a.tsv --create --batch 1 --journal @j").exitCode, 5)
        << "the journal of another classifier would leave texts out";

    server.maxInput = 10000;
    EXPECT_EQ(line("import d @a.tsv --journal @j --restart").exitCode, 0) << err;
    EXPECT_THAT(out, HasSubstr("Learned 3 texts"));
    const auto working = answer;
    answer = [&](const std::string& request) {
        if (request.find("<train") != std::string::npos) {
            throw Failure{ExitCode::INTERRUPTED, "Interrupted."};
        }
        return working(request);
    };
    EXPECT_EQ(line(command).exitCode, 130);
    answer = working;
    EXPECT_EQ(line(command).exitCode, 0) << err;
    EXPECT_THAT(err, HasSubstr("Going on behind 2 records"));
    EXPECT_EQ(line("import straight @a.tsv --create").exitCode, 0);
    EXPECT_EQ(server.stored("straight"), server.stored("c"));
}

// The figures don't depend on how the texts are cut into requests.
TEST_F(ImportVerbTest, EvaluationTellsTheSameInJsonTerminalAndPageAndForAnyRequestSize) {
    write("train.tsv", "ham\tsee you at five\nspam\twin a prize now\n");
    write("test.tsv",
          "ham\tsee you\nham\tprize\nham\twin a prize now\nspam\tfive\nspam\tprize\nbad\nnews\tsee you at "
          "five\n");
    ASSERT_EQ(line("import c @train.tsv --create").exitCode, 0) << err;
    EXPECT_EQ(line("evaluate c @test.tsv").exitCode, 4);
    EXPECT_THAT(err, HasSubstr("line 6"));
    json whole;
    for (const std::size_t maxInput : {100000, 500}) {
        SCOPED_TRACE(maxInput);
        server.maxInput = maxInput;
        ASSERT_EQ(line("evaluate c @test.tsv --skip-bad --json --mistakes 3").exitCode, 0) << err;
        const json report = json::parse(out);
        EXPECT_EQ(report["texts"], 6);
        EXPECT_NEAR(report["accuracy"].get<double>(), 2.0 / 6, 1e-9);
        EXPECT_EQ(report["confusion"]["matrix"], json::parse("[[1,0,2],[1,0,0],[1,0,1]]"));
        const json& mistakes = report["mistakes"];
        ASSERT_EQ(mistakes.size(), 3U);
        EXPECT_EQ(mistakes[0]["place"], "line 3");
        EXPECT_EQ(mistakes[0]["words"][0]["class"], "spam");
        EXPECT_EQ(mistakes[1]["place"], "line 7") << "of a class that the classifier doesn't know";
        EXPECT_EQ(mistakes[1]["probabilityOfActual"], 0);
        EXPECT_GE(mistakes[1]["confidence"], mistakes[2]["confidence"]);
        EXPECT_EQ(whole.is_null() ? report : whole, report);
        whole = report;
    }
    EXPECT_GT(requests.size(), 5U);
    ASSERT_EQ(line("evaluate c @test.tsv --skip-bad --html @page.html").exitCode, 0) << err;
    EXPECT_THAT(out, HasSubstr("accuracy            0.3333"));
    EXPECT_THAT(support::readFile(folder.file("page.html")), HasSubstr("33.3 %"));
    EXPECT_EQ(line("evaluate c @test.tsv --skip-bad --html @no/page.html").exitCode, 4);
    write("bad.tsv", "bad\n");
    EXPECT_EQ(line("evaluate c @bad.tsv --skip-bad").exitCode, 4) << "no text that could be used";
    EXPECT_EQ(line("evaluate missing @test.tsv --skip-bad").exitCode, 1);
    server.maxInput = 100;
    EXPECT_EQ(line("evaluate c @test.tsv --skip-bad").exitCode, 1);
}

}  // namespace
}  // namespace halvern::morvane::client
