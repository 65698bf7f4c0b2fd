#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "Program.h"
#include "support/ServerInMemory.h"
#include "support/TempDir.h"

namespace halvern::morvane::client {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class ImportVerbTest : public testing::Test {
protected:
    // Runs the program with these arguments and gives its exit code.
    int run(std::vector<std::string> arguments, const std::string& input = "") {
        struct Wire final : Exchange {
            explicit Wire(ImportVerbTest& test) : test(test) {}
            ImportVerbTest& test;
            std::string ask(const std::string& request) override {
                ++test.requests;
                return test.server.answer(request);
            }
        };
        std::istringstream in(input);
        std::ostringstream out;
        std::ostringstream err;
        const Environment environment = [this](const std::string& name) -> std::optional<std::string> {
            return name == "XDG_STATE_HOME" ? std::optional<std::string>(folder.path()) : std::nullopt;
        };
        const auto connect = [this](const Settings&) -> std::unique_ptr<Exchange> {
            return std::make_unique<Wire>(*this);
        };
        requests = 0;
        Program program({in, out, err, Terminal(), Terminal(), environment, connect, ""});
        const int code = program.run(std::move(arguments));
        output = out.str();
        errors = err.str();
        return code;
    }

    std::string write(const std::string& name, const std::string& content) {
        std::filesystem::create_directories(std::filesystem::path(folder.file(name)).parent_path());
        support::writeFile(folder.file(name), content);
        return folder.file(name);
    }

    support::TempDir folder;
    support::ServerInMemory server;
    int requests = 0;
    std::string output;
    std::string errors;
};

TEST_F(ImportVerbTest, TheSameTextsAreLearnedFromEveryForm) {
    write("mails/ham/1", "see you,\n\"at five\"");
    write("mails/ham/2", "caf\xc3\xa9");
    write("mails/spam/1", "win a prize");
    const std::string csv = write(
        "a.csv", "text,kind\r\n\"see you,\n\"\"at five\"\"\",ham\r\ncaf\xc3\xa9,ham\r\nwin a prize,spam\r\n");
    const std::string jsonl = write("a.jsonl",
                                    "{\"label\":\"ham\",\"text\":\"see you,\\n\\\"at "
                                    "five\\\"\"}\n{\"label\":\"ham\",\"text\":\"caf\\u00e9\"}\n"
                                    "{\"label\":\"spam\",\"text\":\"win a prize\"}\n");
    ASSERT_EQ(run({"import", "folder", folder.file("mails/"), "--create"}), 0) << errors;
    ASSERT_EQ(run({"import", "csv", csv, "--create", "--label-column", "kind"}), 0) << errors;
    ASSERT_EQ(run({"import", "jsonl", "-", "--create", "--format", "jsonl"}, support::readFile(jsonl)), 0)
        << errors;
    // A pipe, whose bytes can be read once.
    const std::string pipe = folder.file("pipe.csv");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    std::thread writer([&] { support::writeFile(pipe, support::readFile(csv)); });
    EXPECT_EQ(run({"import", "piped", pipe, "--create", "--label-column", "kind"}), 0) << errors;
    writer.join();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(server.stored("folder"), server.stored("piped"));
    EXPECT_EQ(server.stored("folder"), server.stored("csv"));
    EXPECT_EQ(server.stored("folder"), server.stored("jsonl"));
    for (const auto& left : std::filesystem::directory_iterator(folder.file("morvane"))) {
        EXPECT_FALSE(left.path().filename().string().starts_with("import")) << left.path();
    }
}

TEST_F(ImportVerbTest, DryRunTellsClassesAndProblemsAndSendsNothing) {
    const std::string file = write("a.tsv", "ham\tone\nspam\ttwo\nno tab\nham\t\xff\n");
    EXPECT_EQ(run({"import", "c", file, "--dry-run", "--json"}), 4);
    const json survey = json::parse(output);
    EXPECT_EQ(survey["records"], 4);
    EXPECT_EQ(survey["bad"], 1);
    EXPECT_EQ(survey["notUtf8"], 1);
    EXPECT_EQ(survey["classes"][0]["texts"], 2);
    EXPECT_EQ(survey["problems"][0], "line 3 has no tab between label and text");
    EXPECT_EQ(run({"import", "c", file, "--dry-run", "--skip-bad"}), 0);
    EXPECT_EQ(requests, 0);
}

TEST_F(ImportVerbTest, NothingIsSentBeforeAllOfTheInputIsKnownToBeSound) {
    const std::string file = write("a.tsv", "ham\tone\nno tab\n");
    EXPECT_EQ(run({"import", "c", file, "--create"}), 4);
    EXPECT_THAT(errors, HasSubstr("line 2 has no tab"));
    EXPECT_EQ(requests, 0);
    EXPECT_EQ(run({"import", "c", file, "--create", "--skip-bad", "--json"}), 0);
    EXPECT_EQ(json::parse(output)["skipped"], 1);
    EXPECT_EQ(json::parse(output)["texts"], 1);

    const std::pair<std::vector<std::string>, int> cases[] = {
        {{"import", "c", folder.file("missing.tsv")}, 4},
        {{"import", "c", "-"}, 2},
        {{"import", "a/b", file}, 2},
        {{"import", "c", file, "--batch", "0"}, 2},
        {{"import", "c", file, "--assume", "maybe"}, 2},
        {{"import", "c", file, "--delimiter", ";;"}, 2},
        {{"import", "missing", file, "--skip-bad"}, 1},
    };
    for (const auto& [arguments, code] : cases) {
        EXPECT_EQ(run(arguments), code) << arguments.back() << ": " << errors;
    }
}

TEST_F(ImportVerbTest, InterruptedImportGoesOnOnlyWithTheSameInput) {
    const std::string file = write("a.tsv",
                                   "ham\tone\nspam\ttwo\n"
                                   "ham\t" +
                                       std::string(3000, 'x') + "\n");
    server.maxInput = 2000;
    const std::vector<std::string> command = {"import", "c", file, "--create", "--batch", "1"};
    EXPECT_EQ(run(command), 1);
    EXPECT_THAT(errors, HasSubstr("line 3"));

    write("a.tsv", "ham\tone\nspam\ttwo\nham\tshort\n");
    EXPECT_EQ(run(command), 5);
    EXPECT_THAT(errors, HasSubstr("has changed"));
    write("a.tsv",
          "ham\tone\nspam\ttwo\n"
          "ham\t" +
              std::string(3000, 'x') + "\n");
    const auto journal = [&](const std::string& classifier) {
        return run({"import", classifier, file, "--create", "--batch", "1", "--journal", folder.file("j")});
    };
    EXPECT_EQ(journal("d"), 1);
    EXPECT_EQ(journal("e"), 5) << "the journal of another classifier would leave texts out";
    std::vector<std::string> otherColumns = command;
    otherColumns.insert(otherColumns.end(), {"--text-column", "2"});
    EXPECT_EQ(run(otherColumns), 5);

    server.maxInput = 10000;
    EXPECT_EQ(run(command), 0) << errors;
    EXPECT_THAT(errors, HasSubstr("Going on behind 2 records"));
    const util::Bytes once = server.stored("c");
    EXPECT_EQ(run({"import", "straight", file, "--create"}), 0);
    EXPECT_EQ(server.stored("straight"), once);
}

TEST_F(ImportVerbTest, EvaluationTellsTheSameInJsonTerminalAndPage) {
    const std::string train = write("train.tsv", "ham\tsee you at five\nspam\twin a prize now\n");
    const std::string test = write("test.csv", "label,text\nham,see you\nspam,prize\nham,win a prize\n");
    ASSERT_EQ(run({"import", "c", train, "--create"}), 0) << errors;
    ASSERT_EQ(run({"evaluate", "c", test, "--json"}), 0) << errors;
    const json report = json::parse(output);
    EXPECT_EQ(report["texts"], 3);
    EXPECT_NEAR(report["accuracy"].get<double>(), 2.0 / 3, 1e-9);
    EXPECT_EQ(report["confusion"]["matrix"], json::parse("[[1,1],[0,1]]"));
    EXPECT_EQ(report["mistakes"][0]["predicted"], "spam");
    EXPECT_EQ(report["calibration"]["bins"].size(), 15u);
    ASSERT_EQ(run({"evaluate", "c", test, "--html", folder.file("page.html")}), 0) << errors;
    EXPECT_THAT(output, HasSubstr("accuracy           0.6667"));
    EXPECT_THAT(support::readFile(folder.file("page.html")), HasSubstr("66.7 %"));
    EXPECT_EQ(run({"evaluate", "c", test, "--html", folder.file("no/page.html")}), 4);
}

}  // namespace
}  // namespace halvern::morvane::client
