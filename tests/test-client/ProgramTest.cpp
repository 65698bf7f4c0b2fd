#include "Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/ClientRun.h"
#include "support/ServerInMemory.h"

namespace halvern::morvane::client {
namespace {

using nlohmann::json;
using support::ClientRun;
using support::refusal;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(ProgramTest, VerbsDoWhatTheySayAndShowIt) {
    support::ServerInMemory server;
    ClientRun run;
    run.answer = [&](const std::string& request) { return server.answer(request); };
    run.write("a.txt", "hej");
    run.input = "hopp\n\nhej";
    const struct {
        const char* line;
        int code;
        const char* out;
    } rows[] = {
        {"create l a", 0, "Created l with 1 class.\n"},
        {"add-class l c b", 0, "Added 2 classes to l.\n"},
        {"remove-class l c", 0, "Removed 1 class from l, with all that they had learned.\n"},
        {"train l b @a.txt - --text -x -t y", 0, "Trained b of l with 4 texts.\n"},
        {"untrain l b - -t y", 0, "Untrained b of l with 2 texts.\n"},
        {"train l a --lines -", 0, "Trained a of l with 3 texts.\n"},
        {"train l a -t x --max-size 10", 1, ""},
        {"create m", 0, "Created m.\n"},
        {"info l m", 0,
         "CLASSIFIER  CLASS           FEATURES  OCCURRENCES\n"
         "l           a                      2            2\n"
         "            b                      2            2\n"
         "m           (no class yet)\n"},
        {"classify l - --lines -t q", 0,
         "TEXT  CLASS  PROBABILITY  COVERAGE\n"
         "-:1   a           0.9976    1.0000\n"
         "-:2   a           0.5000    0.0000\n"
         "-:3   a           0.5000    1.0000\n"
         "text  a           0.5000    0.0000\n"},
        {"classify l --all -t hopp", 0,
         "TEXT  CLASS  PROBABILITY  COVERAGE\n"
         "text  a           0.9976    1.0000\n"
         "      b           0.0024\n"},
        {"keywords l -t hopp -t q", 0,
         "TEXT    WORD    CLASS  PROBABILITY\n"
         "text 1  hopp    a           0.9545\n"
         "text 2  (none)\n"},
        {"remove l", 0, "There is no l any more.\n"},
        {"info l", 1, ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(run.line(row.line).exitCode, row.code) << row.line << run.err;
        EXPECT_EQ(run.out, row.out) << row.line;
    }
    EXPECT_EQ(run.requests.size(), std::size(rows)) << "One sequence each";
}

TEST(ProgramTest, MachinesGetJsonInItsDocumentedShapes) {
    support::ServerInMemory server;
    ClientRun run;
    run.answer = [&](const std::string& request) { return server.answer(request); };
    const std::pair<const char*, const char*> rows[] = {
        {"create l b a", R"({"classifier": "l", "done": "create", "classes": ["b", "a"]})"},
        {"train l b -t w", R"({"classifier": "l", "done": "train", "class": "b", "texts": ["text"]})"},
        {"classify l -t q", R"({"classifier": "l", "texts": [{"name": "text", "class": "a",
            "probability": 0.5, "coverage": 0.0, "probabilities": {"a": 0.5, "b": 0.5}}]})"},
        {"keywords l -t q", R"({"classifier": "l", "texts": [{"name": "text", "keywords": []}]})"},
        {"create m", R"({"classifier": "m", "done": "create", "classes": []})"},
        {"info m l", R"({"classifiers": [{"name": "m", "classes": []}, {"name": "l", "classes": [
            {"name": "b", "uniqueFeatures": 1, "totalCount": 1},
            {"name": "a", "uniqueFeatures": 0, "totalCount": 0}]}]})"},
    };
    for (const auto& [line, document] : rows) {
        EXPECT_EQ(json::parse(run.line(std::string("--json ") + line).out), json::parse(document)) << run.err;
    }
    EXPECT_EQ(run.line("--json create l").exitCode, 1);
    EXPECT_EQ(run.out, "");
    const json error = json::parse(run.err).at("error");
    EXPECT_EQ(error.at("statusCode"), 4000);
    EXPECT_EQ(error.at("exitCode"), 1);
    EXPECT_EQ(error.at("call"), "create l");
    EXPECT_EQ(json::parse(run.line("info --json").err).at("error").at("exitCode"), 2);
    // A name that isn't UTF-8 is no reason to fail.
    run.answer = [](const std::string&) { return support::success(""); };
    EXPECT_EQ(json::parse(run.run({"--json", "remove-class", "l", "\xE4"}).out)["classes"][0],
              "\xEF\xBF\xBD");
}

TEST(ProgramTest, WhatIsWrongIsToldOnStandardErrorAndByTheExitCode) {
    ClientRun run;
    run.write("empty", "");
    const std::tuple<const char*, int, const char*> rows[] = {
        {"", 2, "verb is missing"},
        {"config frob", 2, "There is no verb 'frob'"},
        {"train l", 2, "'morvane train --help'"},
        {"info x --frob", 2, "--frob"},
        {"info a/b", 2, "can't be the name of a classifier"},
        {"train l c", 2, "There is no text"},
        {"train l c --lines @empty", 2, "There is no line"},
        {"classify l - -", 2, "only once"},
        {"train l c -t x --max-size 0", 2, "--max-size"},
        {"info x --server h:x", 2, "is no port"},
        {"classify l @none", 4, "'none' can't be read: No such file"},
        {"request @", 4, "Is a directory"},
        {"bench", 2, "nothing to send"},
        {"bench --echo -d 1 -n 1", 2, "--duration"},
    };
    for (const auto& [line, code, words] : rows) {
        EXPECT_EQ(run.line(line).exitCode, code) << line;
        EXPECT_THAT(run.err, AllOf(StartsWith("morvane: "), HasSubstr(words)));
        EXPECT_EQ(run.out, "");
        EXPECT_TRUE(run.requests.empty());
    }
    run.answer = [](const std::string&) -> std::string {
        throw Failure{ExitCode::INTERRUPTED, "Interrupted."};
    };
    EXPECT_EQ(run.line("info x").exitCode, 130);
    run.answer = [](const std::string&) -> std::string { throw std::bad_alloc(); };
    EXPECT_THAT(run.line("info x").err, HasSubstr("memory"));
    run.answer = [](const std::string&) { return refusal(4000, "\x1B[31mred\nCall id: 1\n"); };
    EXPECT_THAT(run.line("info x").err, Not(HasSubstr("\x1B")));
}

// The help of each verb is what most people will ever read of it.
TEST(ProgramTest, EveryVerbShowsAnExample) {
    ClientRun run;
    EXPECT_EQ(run.line("--version").exitCode, 0);
    EXPECT_EQ(run.line("--help").exitCode, 0);
    std::istringstream lines(run.out.substr(run.out.find("Subcommands:")));
    std::string name;
    std::getline(lines, name);
    int verbs = 0;
    for (std::string line; std::getline(lines, line) && !line.empty(); ++verbs) {
        std::istringstream(line) >> name;
        EXPECT_EQ(run.line(name + " --help").exitCode, 0);
        EXPECT_THAT(run.out, HasSubstr("Example:\n  morvane " + name));
    }
    EXPECT_GT(verbs, 12);
}

TEST(ProgramTest, ARequestGoesAndItsAnswerComesAsTheyAre) {
    ClientRun run;
    run.input = std::string("any \0 bytes", 11);
    const std::pair<std::string, int> rows[] = {
        {refusal(4000, "No."), 1}, {support::success(""), 0}, {"HTTP/1.1 400 Bad Request\n", 3}};
    for (const auto& [answer, code] : rows) {
        run.answer = [&answer = answer](const std::string&) { return answer; };
        EXPECT_EQ(run.line("request -").exitCode, code);
        EXPECT_EQ(run.out, answer);
        EXPECT_EQ(run.requests.back(), run.input);
    }
}

TEST(ProgramTest, BenchSendsEachTextInARequestOfItsOwn) {
    ClientRun run;
    run.input = "one\r\ntwo\n";
    run.line("bench l --lines - --clients 1 --requests 3 --json");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    const std::string first = run.requests.at(0);
    EXPECT_THAT(first, HasSubstr(">b25l<"));
    EXPECT_THAT(run.requests, ElementsAre(first, first, HasSubstr(">dHdv<"), first))
        << "One ahead, uncounted";
    EXPECT_EQ(json::parse(run.out).at("answers"), 3);

    run.answer = [&](const std::string&) {
        return run.requests.size() % 2 == 1 ? support::success("") : refusal(4000, "Gone.");
    };
    EXPECT_EQ(run.line("bench l - --clients 1 --requests 3").exitCode, 1);
    EXPECT_THAT(run.out, AllOf(HasSubstr("answers       1 in"), HasSubstr("errors        2"),
                               HasSubstr("(4000) to classify -.\nGone.")));
    run.answer = [](const std::string&) { return refusal(4000, "Never."); };
    EXPECT_EQ(run.line("bench l -").exitCode, 1) << "Refused at once, not for ten seconds";
    EXPECT_THAT(run.err, HasSubstr("(4000) to classify -."));
    run.line("bench --echo --requests 20 --clients 3");
    EXPECT_THAT(run.out, AllOf(HasSubstr("answers       20 in"), HasSubstr("errors        0")));
}

}  // namespace
}  // namespace halvern::morvane::client
