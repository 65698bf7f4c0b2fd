#include "completion/Completion.h"

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <set>
#include <sstream>

#include "Program.h"
#include "completion/KnownClassifiers.h"
#include "completion/ShellWords.h"
#include "support/ClientRun.h"
#include "support/TempDir.h"

namespace halvern::morvane::client {
namespace {

class FakeNames final : public LiveNames {
public:
    std::vector<std::string> classifiers(const std::string& server) override {
        return {"classifier of " + server};
    }
    std::vector<std::string> classes(const std::string& server, const std::string& classifier) override {
        return {"class of " + classifier + " of " + server};
    }
};

class CompletionTest : public testing::Test {
protected:
    CompletionTest() { declareCommandLine(app, context); }

    // The suggestions, and "<files>" if there can be files.
    std::set<std::string> suggested(const std::vector<std::string>& words) {
        const Suggestions suggestions = complete(app, words, names);
        std::set<std::string> texts;
        for (const Suggestions::Word& word : suggestions.words) {
            EXPECT_TRUE(texts.insert(word.text).second) << word.text;
        }
        if (suggestions.files) {
            texts.insert("<files>");
        }
        return texts;
    }

    std::stringstream stream;
    Context context{
        {stream, stream, stream, {}, {}, [](const std::string&) { return std::nullopt; }, {}, ""}};
    CLI::App app;
    FakeNames names;
};

TEST_F(CompletionTest, KnowsEveryVerbAndOption) {
    std::size_t verbs = 0;
    const std::function<void(const CLI::App&, std::vector<std::string>)> visit =
        [&](const CLI::App& verb, std::vector<std::string> path) {
            path.push_back("-");
            const std::set<std::string> options = suggested(path);
            for (const CLI::Option* option : verb.get_options()) {
                if (!option->get_lnames().empty()) {
                    EXPECT_TRUE(options.count("--" + option->get_lnames().front())) << verb.get_name();
                }
            }
            EXPECT_TRUE(options.count("--server")) << verb.get_name();
            path.back() = "";
            const std::set<std::string> words = suggested(path);
            for (const CLI::App* child : verb.get_subcommands([](const CLI::App*) { return true; })) {
                EXPECT_TRUE(words.count(child->get_name())) << child->get_name();
                path.back() = child->get_name();
                visit(*child, path);
                ++verbs;
            }
        };
    visit(app, {});
    EXPECT_GT(verbs, 15);
}

TEST_F(CompletionTest, ReadsWhatStandsBeforeAsTheProgramDoes) {
    const std::set<std::string> files{"<files>"};
    const std::set<std::string> nothing;
    const struct {
        std::vector<std::string> words;
        std::set<std::string> suggestions;
    } cases[] = {
        {{"classify", ""}, {"classifier of "}},
        {{"--server", "s:1", "--json", "classify", ""}, {"classifier of s:1"}},
        {{"--server=s:1", "info", "a", ""}, {"classifier of s:1"}},
        {{"--server", "=", "s:1", "info", ""}, {"classifier of s:1"}},
        {{"train", "c", ""}, {"class of c of "}},
        {{"train", "c", "--server", "s:1", ""}, {"class of c of s:1"}},
        {{"train", "-lt", "text", "c", ""}, {"class of c of "}},
        {{"train", "-ttext", "c", ""}, {"class of c of "}},
        {{"train", "c", "k", ""}, files},
        {{"train", "c", "k", "-t", ""}, nothing},
        {{"remove-class", "c", "k", ""}, {"class of c of "}},
        {{"add-class", "c", ""}, nothing},
        {{"create", ""}, nothing},
        {{"create", "c", ""}, nothing},
        {{"remove", "c", ""}, nothing},
        {{"file", "info", "--", "-"}, files},
        {{"file", "load", "x", "-o", ""}, files},
        {{"file", "load", "x", "--output=y"}, files},
        {{"import", "c", "x", "--assume", ""}, {"taken", "not-taken"}},
        {{"import", "c", "x", "--assume="}, {"--assume=taken", "--assume=not-taken"}},
        {{"classify", "--nonsense", ""}, {"classifier of "}},
        {{"nonsense", "file", ""}, suggested({"file", ""})},
        {{}, nothing},
    };
    for (const auto& each : cases) {
        std::string shown;
        for (const std::string& word : each.words) {
            shown += word + " ";
        }
        EXPECT_EQ(suggested(each.words), each.suggestions) << shown;
    }
}

// A name is offered once a verb has worked with it, and no longer when its classifier has been removed.
TEST(CompleteCommandTest, OffersNamesThatWorkedAndIsSilentWhenNothingDoes) {
    const support::TempDir home;
    support::ClientRun run;
    run.environment["HOME"] = home.path();
    const auto offered = [&](const std::vector<std::string>& words) {
        std::vector<std::string> arguments{"complete", "zsh"};
        arguments.insert(arguments.end(), words.begin(), words.end());
        run.run(arguments);
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_EQ(run.err, "");
        return run.out;
    };
    EXPECT_EQ(offered({"info", ""}), "words\n");
    EXPECT_EQ(run.run({"create", "two words"}).exitCode, 0) << run.err;
    EXPECT_EQ(offered({"info", ""}), "words\ntwo words\n");
    EXPECT_EQ(offered({"--server", "elsewhere", "info", ""}), "words\n");
    EXPECT_EQ(run.run({"complete", "bash", "morvane info tw", "tw"}).out, "words\ntwo\\ words\n");
    EXPECT_EQ(run.run({"complete", "bash", "morvane info \"tw", "tw"}).out, "words\ntwo words\n");
    support::writeFile(home.file("t.tsv"), "a\ttext\n");
    EXPECT_EQ(run.run({"import", "other", home.file("t.tsv"), "--dry-run"}).exitCode, 0) << run.err;
    EXPECT_EQ(offered({"info", ""}), "words\ntwo words\n");

    const std::string information =
        "<getInformation id=\"1\"><classes><classInformation className=\"k:1\" uniqueFeatures=\"1\" "
        "totalCount=\"1\"/></classes></getInformation>";
    run.answer = [&](const std::string&) {
        return support::success("<readCalls>" + information + "</readCalls>");
    };
    EXPECT_EQ(offered({"train", "two words", ""}), "words\nk:1\n");
    // bash takes what stands behind the colon for a word of its own.
    EXPECT_EQ(run.run({"complete", "bash", "morvane train c k:", ""}).out, "words\n1\n");
    run.answer = [](const std::string&) { return support::refusal(4000, "No such classifier."); };
    EXPECT_EQ(offered({"train", "two words", ""}), "words\n");
    EXPECT_EQ(run.run({"info", "strange"}).exitCode, 1);
    run.answer = [](const std::string&) -> std::string {
        throw Failure{ExitCode::UNREACHABLE, "Nobody there."};
    };
    EXPECT_EQ(offered({"train", "two words", ""}), "words\n");
    run.environment["MORVANE_SERVER"] = "no:such:address:";
    EXPECT_EQ(offered({"info", ""}), "words\n");
    run.environment.erase("MORVANE_SERVER");
    EXPECT_EQ(offered({"info", ""}), "words\ntwo words\n");

    run.answer = [](const std::string&) {
        return support::success("<writeCalls><remove id=\"1\"/></writeCalls>");
    };
    EXPECT_EQ(run.run({"remove", "two words"}).exitCode, 0) << run.err;
    EXPECT_EQ(offered({"info", ""}), "words\n");
    EXPECT_EQ(run.run({"complete"}).out, "");
    EXPECT_EQ(run.run({"complete", "bash", ""}).out, "");
}

TEST(ShellWordsTest, AreCutAsBashCutsThem) {
    const struct {
        const char* line;
        std::vector<std::string> words;
        const char* rawLast;
        bool endsInQuotes;
    } cases[] = {
        {"", {""}, "", false},
        {"morvane ", {"morvane", ""}, "", false},
        {"a  b\tc", {"a", "b", "c"}, "c", false},
        {"a two\\ wo", {"a", "two wo"}, "two\\ wo", false},
        {"a 'b c' \"d\\\"\\e\" f'g'", {"a", "b c", "d\"\\e", "fg"}, "f'g'", false},
        {"a \"b c", {"a", "b c"}, "\"b c", true},
        {"a 'b\\", {"a", "b\\"}, "'b\\", true},
        {"a ''", {"a", ""}, "''", false},
    };
    for (const auto& each : cases) {
        const ShellWords read = readShellWords(each.line);
        EXPECT_EQ(read.words, each.words) << each.line;
        EXPECT_EQ(read.rawLast, each.rawLast) << each.line;
        EXPECT_EQ(read.endsInQuotes, each.endsInQuotes) << each.line;
    }
    std::string all;
    for (int c = 1; c < 256; ++c) {
        all += c == '\n' ? ' ' : static_cast<char>(c);
    }
    EXPECT_EQ(readShellWords(shellQuoted(all)).words, std::vector<std::string>{all});
}

TEST(KnownClassifiersTest, AreKeptForEachServer) {
    const support::TempDir home;
    const auto known = [&](const char* variable, const std::string& value) {
        return KnownClassifiers([=](const std::string& name) {
            return name == variable ? std::optional<std::string>(value) : std::nullopt;
        });
    };
    using Names = std::vector<std::string>;
    const KnownClassifiers names = known("HOME", home.path());
    EXPECT_EQ(names.of("a:1"), Names{});
    names.forget("a:1", "x");
    names.remember("a:1", "x");
    names.remember("a:1", "y z");
    names.remember("a:1", "x");
    names.remember("a:11", "other");
    EXPECT_EQ(names.of("a:1"), (Names{"x", "y z"}));
    names.forget("a:1", "x");
    EXPECT_EQ(names.of("a:1"), Names{"y z"});
    EXPECT_EQ(known("XDG_STATE_HOME", home.file(".local/state")).of("a:11"), Names{"other"});
    std::string full;
    for (int i = 0; i < 1000; ++i) {
        full += i == 0 ? "a:1\toldest\n" : "b:1\t" + std::to_string(i) + "\n";
    }
    support::writeFile(home.file(".local/state/morvane/classifiers"), full);
    names.remember("b:1", "newest");
    EXPECT_EQ(names.of("a:1"), Names{});
    EXPECT_EQ(names.of("b:1").size(), 1000);
    // Without a place to keep them, nothing happens.
    for (const char* value : {"", "relative", "/dev/null"}) {
        const KnownClassifiers nowhere = known("HOME", value);
        nowhere.remember("a:1", "x");
        nowhere.forget("a:1", "x");
        EXPECT_EQ(nowhere.of("a:1"), Names{}) << value;
    }
}

}  // namespace
}  // namespace halvern::morvane::client
