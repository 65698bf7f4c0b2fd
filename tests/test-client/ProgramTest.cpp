#include "Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/ClientRun.h"
#include "support/TempDir.h"
#include "support/Xml.h"

namespace halvern::morvane::client {
namespace {

using nlohmann::json;
using support::ClientRun;
using support::success;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string CLASSES =
    "<classification textCoverage=\"0.75\"><class className=\"eng\" p=\"0.25\"/>"
    "<class className=\"swe\" p=\"0.75\"/></classification>";

// Answers each classify of the request alike.
std::string classifyAll(const std::string& request) {
    std::string calls;
    for (std::size_t i = 1; request.find("<classify id=\"" + std::to_string(i) + "\"") != std::string::npos;
         ++i) {
        calls += "<classify id=\"" + std::to_string(i) + "\">" + CLASSES + "</classify>";
    }
    return success("<readCalls>" + calls + "</readCalls>");
}

TEST(ProgramTest, EachWriteVerbIsOneSequenceInTheOrderOfItsArguments) {
    const support::LoadedSchema schema(MORVANE_SCHEMAS "/server/RequestSchema.xsd");
    const support::TempDir folder;
    const std::string file = folder.file("a.txt");
    support::writeFile(file, "hej");
    struct Case {
        std::vector<std::string> arguments;
        std::vector<std::string> inOrder;
        std::string done;
    };
    const Case cases[] = {
        {{"create", "l"}, {"classifierName=\"l\"", "<create"}, "Created l.\n"},
        {{"create", "l", "b", "a"},
         {"<create", "<addClass", "className=\"b\"", "<addClass", "className=\"a\""},
         "Created l with 2 classes.\n"},
        {{"remove", "l"}, {"<remove"}, "There is no l any more.\n"},
        {{"add-class", "l", "a"}, {"<addClass", "className=\"a\""}, "Added 1 class to l.\n"},
        {{"remove-class", "l", "a", "b"},
         {"<removeClass", "className=\"a\"", "<removeClass", "className=\"b\""},
         "Removed 2 classes from l, with all that they had learned.\n"},
        {{"train", "l", "swe", file, "-", "--text", "-x", "-t", "y"},
         {"aGVq<", "aG9wcAo=<", "LXg=<", "eQ==<", "<train", "className=\"swe\"", "textId=\"1\"",
          "textId=\"4\""},
         "Trained swe of l with 4 texts.\n"},
        {{"train", "l", "swe", "-t", "x", "--max-size", "1000"},
         {"maxSize=\"1000\"", "<train"},
         "Trained swe of l with 1 text.\n"},
        {{"untrain", "l", "swe", "--lines", "-"},
         {"aG9wcA==<", "<untrain"},
         "Untrained swe of l with 1 text.\n"},
    };
    for (const Case& each : cases) {
        ClientRun run;
        run.input = "hopp\n";
        run.run(each.arguments);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.out, each.done);
        ASSERT_EQ(run.requests.size(), 1U);
        EXPECT_EQ(schema.problemOf(run.requests[0]), "");
        std::size_t place = 0;
        for (const std::string& piece : each.inOrder) {
            place = run.requests[0].find(piece, place);
            ASSERT_NE(place, std::string::npos) << piece << " in " << run.requests[0];
            place += piece.size();
        }
    }
}

TEST(ProgramTest, ClassifyShowsARowForEachText) {
    ClientRun run;
    run.input = "one\r\n\ntwo";
    run.answer = classifyAll;
    EXPECT_EQ(run.run({"classify", "l", "-", "--lines", "-t", "three"}).out,
              "TEXT  CLASS  PROBABILITY  COVERAGE\n"
              "-:1   swe         0.7500    0.7500\n"
              "-:2   swe         0.7500    0.7500\n"
              "-:3   swe         0.7500    0.7500\n"
              "text  swe         0.7500    0.7500\n");
    ASSERT_EQ(run.requests.size(), 1U);
    EXPECT_THAT(run.requests[0],
                AllOf(HasSubstr(">b25l<"), HasSubstr("\"2\"></textBase64>"), HasSubstr(">dHdv<")));
    EXPECT_EQ(run.run({"classify", "l", "--all", "-t", "x"}).out,
              "TEXT  CLASS  PROBABILITY  COVERAGE\n"
              "text  swe         0.7500    0.7500\n"
              "      eng         0.2500\n");
}

TEST(ProgramTest, MachinesGetJsonInItsDocumentedShapes) {
    ClientRun run;
    run.answer = classifyAll;
    EXPECT_EQ(json::parse(run.run({"--json", "classify", "l", "-t", "x"}).out), json::parse(R"({
        "classifier": "l", "texts": [{"name": "text", "class": "swe", "probability": 0.75, "coverage": 0.75,
                                      "probabilities": {"eng": 0.25, "swe": 0.75}}]})"));
    run.answer = [](const std::string&) {
        return success(
            "<readCalls><classifyKeywords id=\"1\"><keywords><keyword className=\"c\" p=\"nan\">w</keyword>"
            "</keywords></classifyKeywords></readCalls>");
    };
    EXPECT_EQ(json::parse(run.run({"keywords", "l", "-t", "x", "--json"}).out), json::parse(R"({
        "classifier": "l",
        "texts": [{"name": "text", "keywords": [{"word": "w", "class": "c", "probability": null}]}]})"));
    run.answer = [](const std::string&) {
        return success(
            "<readCalls><getInformation id=\"1\"><classes/></getInformation><getInformation "
            "id=\"2\"><classes>"
            "<classInformation className=\"c\"><uniqueFeatures>1</uniqueFeatures><totalCount>2</totalCount>"
            "</classInformation></classes></getInformation></readCalls>");
    };
    EXPECT_EQ(json::parse(run.run({"info", "--json", "a", "b"}).out), json::parse(R"({"classifiers": [
        {"name": "a", "classes": []}, {"name": "b", "classes": [{"name": "c", "uniqueFeatures": 1, "totalCount": 2}]}]})"));
    EXPECT_THAT(run.run({"info", "a", "b"}).out, HasSubstr("(no class yet)"));
    run.answer = [](const std::string&) { return success(""); };
    EXPECT_EQ(
        json::parse(run.run({"--json", "remove-class", "l", "\xE4"}).out),
        json::parse("{\"classifier\": \"l\", \"done\": \"remove-class\", \"classes\": [\"\xEF\xBF\xBD\"]}"));
    run.answer = [](const std::string&) {
        return support::refusal(4000, "Why.\nCall id: 1\nWriteCall: create\n");
    };
    EXPECT_EQ(run.run({"--json", "create", "l"}).exitCode, 1);
    EXPECT_EQ(run.out, "");
    const json error = json::parse(run.err).at("error");
    EXPECT_EQ(error.at("statusCode"), 4000);
    EXPECT_EQ(error.at("exitCode"), 1);
    EXPECT_EQ(error.at("call"), "create l");
    EXPECT_THAT(error.at("message").get<std::string>(), HasSubstr("Why.\nCall id: 1\nWriteCall: create"));
}

TEST(ProgramTest, WhatIsWrongIsToldOnStandardErrorAndByTheExitCode) {
    const support::TempDir folder;
    const std::string missing = folder.file("none");
    const std::string empty = folder.file("empty");
    support::writeFile(empty, "");
    struct Case {
        std::vector<std::string> arguments;
        int exitCode;
        std::string words;
    };
    const Case cases[] = {
        {{}, 2, "verb is missing"},
        {{"frob"}, 2, "There is no verb 'frob'"},
        {{"config", "frob"}, 2, "There is no verb 'frob'"},
        {{"info"}, 2, "CLASSIFIER is required"},
        {{"train", "l"}, 2, "'morvane train --help'"},
        {{"info", "x", "--frob"}, 2, "--frob"},
        {{"info", "a/b"}, 2, "can't be the name of a classifier"},
        {{"train", "l", "c"}, 2, "There is no text"},
        {{"train", "l", "c", "--lines", empty}, 2, "There is no line"},
        {{"classify", "l", "-", "-"}, 2, "only once"},
        {{"train", "l", "c", "-t", "x", "--max-size", "0"}, 2, "--max-size"},
        {{"info", "x", "--server", "h:x"}, 2, "is no port"},
        {{"classify", "l", missing}, 4, "'" + missing + "' can't be read: No such file"},
        {{"classify", "l", folder.path()}, 4, "Is a directory"},
        {{"request", missing}, 4, "can't be read"},
        {{"bench"}, 2, "nothing to send"},
        {{"bench", "--echo", "-d", "1", "-n", "1"}, 2, "--duration"},
    };
    for (const Case& each : cases) {
        ClientRun run;
        run.run(each.arguments);
        EXPECT_EQ(run.exitCode, each.exitCode) << each.words;
        EXPECT_THAT(run.err, AllOf(StartsWith("morvane: "), HasSubstr(each.words)));
        EXPECT_EQ(run.out, "");
        EXPECT_TRUE(run.requests.empty());
    }
    ClientRun run;
    EXPECT_EQ(json::parse(run.run({"info", "--json"}).err).at("error").at("exitCode"), 2);
    run.answer = [](const std::string&) -> std::string {
        throw Failure{ExitCode::INTERRUPTED, "Interrupted."};
    };
    EXPECT_EQ(run.run({"info", "x"}).exitCode, 130);
    run.answer = [](const std::string&) -> std::string { throw std::bad_alloc(); };
    EXPECT_THAT(run.run({"info", "x"}).err, HasSubstr("memory"));
    run.answer = [](const std::string&) { return support::refusal(4000, "\x1B[31mred\nCall id: 1\n"); };
    EXPECT_THAT(run.run({"info", "x"}).err, Not(HasSubstr("\x1B")));
}

// The help of each verb is what most people will ever read of it.
TEST(ProgramTest, EveryVerbShowsAnExample) {
    ClientRun run;
    EXPECT_EQ(run.run({"--help"}).exitCode, 0);
    EXPECT_THAT(run.out,
                AllOf(HasSubstr("MORVANE_SERVER"), HasSubstr("Exit codes:"), HasSubstr("130 interrupted")));
    std::istringstream lines(run.out.substr(run.out.find("Subcommands:")));
    std::string line;
    std::getline(lines, line);
    int verbs = 0;
    while (std::getline(lines, line) && !line.empty()) {
        const std::string verb = line.substr(2, line.find(' ', 2) - 2);
        EXPECT_EQ(run.run({verb, "--help"}).exitCode, 0);
        EXPECT_THAT(run.out, AllOf(HasSubstr("Example:\n  "), HasSubstr("morvane " + verb))) << verb;
        ++verbs;
    }
    EXPECT_GE(verbs, 12);
    EXPECT_THAT(run.run({"config", "check", "--help"}).out, HasSubstr("morvane config check config.xml"));
    EXPECT_THAT(run.run({"--version"}).out, StartsWith("morvane "));
}

TEST(ProgramTest, ARequestGoesAndItsAnswerComesAsTheyAre) {
    ClientRun run;
    run.input = std::string("any \0 bytes", 11);
    run.answer = [](const std::string&) { return support::refusal(4000, "No."); };
    EXPECT_EQ(run.run({"request", "-"}).exitCode, 1);
    EXPECT_EQ(run.out, support::refusal(4000, "No."));
    EXPECT_THAT(run.requests, ElementsAre(run.input));
    run.answer = [](const std::string&) { return success(""); };
    EXPECT_EQ(run.run({"request", "-"}).exitCode, 0);
    run.answer = [](const std::string&) { return std::string("HTTP/1.1 400 Bad Request"); };
    EXPECT_EQ(run.run({"request", "-"}).exitCode, 3);
    EXPECT_EQ(run.out, "HTTP/1.1 400 Bad Request\n");
}

TEST(ProgramTest, BenchSendsEachTextInARequestOfItsOwn) {
    ClientRun run;
    run.input = "one\ntwo\n";
    run.answer = classifyAll;
    run.run({"bench", "l", "--lines", "-", "--clients", "1", "--requests", "3", "--json"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    ASSERT_EQ(run.requests.size(), 4U) << "One ahead, uncounted";
    EXPECT_THAT(run.requests[1], HasSubstr(">b25l<"));
    EXPECT_THAT(run.requests[2], HasSubstr(">dHdv<"));
    EXPECT_EQ(run.requests[3], run.requests[1]);
    const json result = json::parse(run.out);
    EXPECT_EQ(result.at("answers"), 3);
    EXPECT_EQ(result.at("errors"), 0);

    int asked = 0;
    run.answer = [&](const std::string& request) {
        return ++asked % 2 == 1 ? classifyAll(request) : support::refusal(4000, "Gone.");
    };
    run.input = "one\n";
    EXPECT_EQ(run.run({"bench", "l", "-", "--clients", "1", "--requests", "3"}).exitCode, 1);
    EXPECT_THAT(run.out, AllOf(HasSubstr("answers       1 in"), HasSubstr("errors        2"),
                               HasSubstr("(4000) to classify -.\nGone.")));
    run.answer = [](const std::string&) { return support::refusal(4000, "Never."); };
    run.input = "one\n";
    EXPECT_EQ(run.run({"bench", "l", "-"}).exitCode, 1) << "Refused at once, not for ten seconds";
    EXPECT_THAT(run.err, HasSubstr("(4000) to classify -."));
    run.run({"bench", "--echo", "--requests", "20", "--clients", "3"});
    EXPECT_THAT(run.out, AllOf(HasSubstr("answers       20 in"), HasSubstr("errors        0")));
}

}  // namespace
}  // namespace halvern::morvane::client
