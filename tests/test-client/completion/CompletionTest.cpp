#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "completion/ShellWords.h"
#include "support/ClientRun.h"

namespace halvern::morvane::client {
namespace {

class CompletionTest : public testing::Test, protected support::ClientRun {
protected:
    CompletionTest() {
        environment["HOME"] = folder.path();
        // The server's classifiers all have one class, which tells whose it is.
        answer = [this](const std::string& request) {
            const std::size_t name = request.find("classifierName=\"") + 16;
            return support::success(
                "<readCalls><getInformation id=\"1\"><classes><classInformation className=\"of " +
                request.substr(name, request.find('"', name) - name) + " at " + servers.back() +
                "\" uniqueFeatures=\"1\" totalCount=\"1\"/></classes></getInformation></readCalls>");
        };
    }

    std::string offered(std::vector<std::string> words) {
        words.insert(words.begin(), {"complete", "zsh"});
        run(words);
        EXPECT_EQ(exitCode, 0);
        EXPECT_EQ(err, "");
        return out;
    }
};

TEST_F(CompletionTest, ReadsWhatStandsBeforeAsTheProgramDoes) {
    line("--server s:1 create known");
    const std::string known = "words\nknown\n";
    const std::string classOfC = "words\nof c at 127.0.0.1:9400\n";
    const std::string nothing = "words\n";
    const std::string files = "files\n";
    const std::pair<std::string, std::string> cases[] = {
        {"--server s:1 --json classify ", known},
        {"--server=s:1 info a ", known},
        {"--server = s:1 info ", known},
        {"--server s:1 classify --nonsense ", known},
        {"classify ", nothing},
        {"train c ", classOfC},
        {"train c --server s:1 ", "words\nof c at s:1\n"},
        {"train -lt text c ", classOfC},
        {"train -ttext c ", classOfC},
        {"train c k ", files},
        {"train c k -t ", nothing},
        {"remove-class c k ", classOfC},
        {"add-class c ", nothing},
        {"--server s:1 create ", nothing},
        {"remove c ", nothing},
        {"file info -- -", files},
        {"file load x -o ", files},
        {"file load x --output=y", files},
        {"import c x --assume=", "words\n--assume=taken\n--assume=not-taken\n"},
        {"nonsense config ",
         "words\ncheck\tTell what is wrong with a configuration, without a server\n"
         "init\tWrite a configuration to begin with, which explains itself\n"},
    };
    for (const auto& [line, suggestions] : cases) {
        std::vector<std::string> words;
        std::istringstream split(line + "|");
        for (std::string word; std::getline(split, word, ' ');) {
            words.push_back(word);
        }
        words.back().pop_back();
        EXPECT_EQ(offered(words), suggestions) << line;
    }
    for (const char* option : {"--force", "--server", "--help"}) {
        EXPECT_NE(offered({"config", "init", "-"}).find(std::string("\n") + option + "\t"),
                  std::string::npos);
    }
}

// A name is offered once a verb has worked with it, and no longer when its classifier has been removed.
TEST_F(CompletionTest, OffersNamesThatWorkedAndIsSilentWhenNothingDoes) {
    const std::string both = "words\ntwo words\n";
    EXPECT_EQ(offered({"info", ""}), "words\n");
    run({"create", "two words"});
    write("t.tsv", "a\ttext\n");
    EXPECT_EQ(line("import other @t.tsv --dry-run").exitCode, 0) << err;
    EXPECT_EQ(offered({"info", ""}), both);
    EXPECT_EQ(run({"complete", "bash", "morvane info tw", "tw"}).out, "words\ntwo\\ words\n");
    EXPECT_EQ(run({"complete", "bash", "morvane info \"tw", "tw"}).out, "words\ntwo words\n");
    // bash takes what stands behind the colon for a word of its own.
    EXPECT_EQ(run({"complete", "bash", "morvane train k \"of k at 127.0.0.1:", ""}).out,
              "words\nof k at 127.0.0.1:9400\n");
    EXPECT_EQ(run({"complete", "bash", "morvane train k of\\ k\\ at\\ 127.0.0.1:", ""}).out, "words\n9400\n");
    const std::function<std::string(const std::string&)> failures[] = {
        [](const std::string&) { return support::refusal(4000, "No such classifier."); },
        [](const std::string&) -> std::string {
            throw Failure{ExitCode::UNREACHABLE, "Nobody there."};
        }};
    const auto working = answer;
    for (const auto& failing : failures) {
        answer = failing;
        EXPECT_NE(run({"info", "strange"}).exitCode, 0);
        EXPECT_EQ(offered({"train", "two words", ""}), "words\n");
        EXPECT_EQ(offered({"info", ""}), both);
    }
    environment["MORVANE_SERVER"] = "no:such:address:";
    EXPECT_EQ(offered({"info", ""}), "words\n");
    environment.erase("MORVANE_SERVER");
    answer = working;
    EXPECT_EQ(run({"remove", "two words"}).exitCode, 0) << err;
    EXPECT_EQ(offered({"info", ""}), "words\n");
    EXPECT_EQ(run({"complete"}).out, "");
}

TEST(ShellWordsTest, AreCutAsBashCutsThem) {
    const struct {
        const char* line;
        ShellWords cut;
    } cases[] = {
        {"", {{""}, "", false}},
        {"a  b\tc ", {{"a", "b", "c", ""}, "", false}},
        {"a two\\ wo", {{"a", "two wo"}, "two\\ wo", false}},
        {"a 'b c' \"d\\\"\\e\" f'g'", {{"a", "b c", "d\"\\e", "fg"}, "f'g'", false}},
        {"a \"b c", {{"a", "b c"}, "\"b c", true}},
        {"a 'b\\", {{"a", "b\\"}, "'b\\", true}},
    };
    for (const auto& each : cases) {
        const ShellWords read = readShellWords(each.line);
        EXPECT_EQ(read.words, each.cut.words) << each.line;
        EXPECT_EQ(read.rawLast, each.cut.rawLast) << each.line;
        EXPECT_EQ(read.endsInQuotes, each.cut.endsInQuotes) << each.line;
    }
    std::string all;
    for (int c = 1; c < 256; ++c) {
        all += c == '\n' ? ' ' : static_cast<char>(c);
    }
    EXPECT_EQ(readShellWords(shellQuoted(all)).words, std::vector<std::string>{all});
}

TEST_F(CompletionTest, NamesAreKeptForEachServerAsLongAsThereIsRoom) {
    const auto work = [this](const std::string& server, const std::string& name) {
        EXPECT_EQ(line("--server " + server + " remove-class " + name + " k").exitCode, 0) << err;
    };
    work("a:1", "x");
    work("a:11", "other");
    work("a:1", "x");
    work("a:11", "x");
    EXPECT_EQ(line("--server a:11 remove x").exitCode, 0) << err;
    EXPECT_EQ(offered({"--server", "a:1", "info", ""}), "words\nx\n");
    environment["XDG_STATE_HOME"] = folder.file("elsewhere");
    EXPECT_EQ(offered({"--server", "a:1", "info", ""}), "words\n");
    environment.erase("XDG_STATE_HOME");
    std::string full;
    for (int i = 0; i < 1000; ++i) {
        full += i == 0 ? "a:1\toldest\n" : "b:1\t" + std::to_string(i) + "\n";
    }
    write(".local/state/morvane/classifiers", full);
    work("b:1", "newest");
    EXPECT_EQ(offered({"--server", "a:1", "info", ""}), "words\n");
    EXPECT_THAT(offered({"--server", "b:1", "info", ""}), testing::EndsWith("\n999\nnewest\n"));
    // Without a place to keep them, nothing happens.
    for (const char* home : {"", "relative", "/dev/null"}) {
        environment["HOME"] = home;
        work("a:1", "x");
        EXPECT_EQ(offered({"--server", "a:1", "info", ""}), "words\n") << home;
    }
}

}  // namespace
}  // namespace halvern::morvane::client
