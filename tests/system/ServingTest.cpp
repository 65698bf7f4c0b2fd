#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <fstream>
#include <set>
#include <thread>

#include "system/Program.h"
#include "system/Wire.h"

namespace systemtest {
namespace {

// Swedish in ISO-8859-1: a text is bytes, and these aren't UTF-8.
const std::string SWEDISH = "hej hopp detta \xE4r en text p\xE5 svenska tror jag";
const std::string ENGLISH = "hi this is a text in english I beleive";

std::string twoLanguages() {
    return request(
        texts(text("sweText", SWEDISH) + text("engText", ENGLISH)) +
        writeCalls(
            "test_engswe",
            "<create id=\"call_1\"/>\n"
            "<addClass id=\"call_2\" className=\"swe\"/>\n<addClass id=\"call_3\" className=\"eng\"/>\n"
            "<train id=\"call_4\" className=\"swe\" textId=\"sweText\"/>\n"
            "<train id=\"call_5\" className=\"eng\" textId=\"engText\"/>\n"));
}

std::string questions(const std::string& version = "1.01") {
    return request(
        texts(text("a", "hej") + text("b", "a text that is mostly english") + text("c", "qwerty")) +
            readCalls("<classify id=\"1\" classifierName=\"test_engswe\" textId=\"a\"/>\n"
                      "<classify id=\"2\" classifierName=\"test_engswe\" textId=\"b\"/>\n"
                      "<classify id=\"3\" classifierName=\"test_engswe\" textId=\"c\"/>\n"
                      "<classifyKeywords id=\"4\" classifierName=\"test_engswe\" textId=\"b\"/>\n" +
                      information("test_engswe", "5")),
        version);
}

TEST(ServingTest, TrainsAnswersAndFindsEverythingAgainAfterARestart) {
    const Installation installation;
    std::string before;
    {
        Server server(installation);
        const std::string trained = replyTo(server.port(), twoLanguages());
        EXPECT_EQ(trained,
                  "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
                  "<morvane xmlns=\"http://morvane.example/1/server/ResponseSchema\" version=\"1.01\">\n"
                  "\t<status success=\"true\" statusCode=\"2000\"/>\n"
                  "\t<writeCalls>\n"
                  "\t\t<create id=\"call_1\"/>\n"
                  "\t\t<addClass id=\"call_2\"/>\n"
                  "\t\t<addClass id=\"call_3\"/>\n"
                  "\t\t<train id=\"call_4\"/>\n"
                  "\t\t<train id=\"call_5\"/>\n"
                  "\t</writeCalls>\n"
                  "</morvane>");
        parse(trained);

        before = replyTo(server.port(), questions());
        Answer answer = parse(before);
        ASSERT_TRUE(answer.success) << answer.message;
        EXPECT_EQ(answer.version, "1.01");
        // One known word, one against none: ln 1.05 and ln 0.05, scaled by 1 / sqrt 2, sharpened by 2.8.
        EXPECT_NEAR(answer.results["1"].probabilities["swe"], 0.997595, 1e-6);
        EXPECT_NEAR(answer.results["1"].probabilities["eng"], 0.00240488, 1e-8);
        EXPECT_EQ(answer.results["1"].textCoverage, "1");
        EXPECT_EQ(answer.results["2"].best(), "eng");
        EXPECT_EQ(answer.results["3"].probabilities,
                  (std::map<std::string, double>{{"eng", 0.5}, {"swe", 0.5}}));
        EXPECT_EQ(answer.results["3"].textCoverage, "0");
        std::set<std::string> keywords;
        for (const Keyword& keyword : answer.results["4"].keywords) {
            // "text" stands in both languages and speaks for neither.
            EXPECT_EQ(keyword.className, "eng") << keyword.token;
            EXPECT_GT(keyword.probability, 0.6);
            keywords.insert(keyword.token);
        }
        EXPECT_EQ(keywords, (std::set<std::string>{"a", "is", "english"}));
        // Words, heads of long words, and pairs of neighbours, counted by hand.
        EXPECT_EQ(answer.results["5"].classes,
                  (std::map<std::string, ClassCounts>{{"eng", {17, 17}}, {"swe", {19, 19}}}));
        EXPECT_EQ(server.stop(), 0);
    }
    EXPECT_NE(installation.log().find("Closing server."), std::string::npos);
    // The stored form: data version 5, extractor version 5.
    EXPECT_EQ(support::readFile(installation.classifier("test_engswe")).substr(0, 8),
              std::string("\x05\0\0\0\x05\0\0\0", 8));
    Server server(installation);
    EXPECT_EQ(replyTo(server.port(), questions()), before);
    EXPECT_EQ(server.stop(), 0);
}

TEST(ServingTest, SpeaksTheOlderVersionToOlderClients) {
    const Installation installation;
    Server server(installation);
    ASSERT_TRUE(ask(server.port(), twoLanguages()).success);
    Answer answer = ask(server.port(), questions("1.00"));
    EXPECT_EQ(answer.version, "1.00");
    EXPECT_EQ(answer.results["1"].textCoverage, "");
    EXPECT_EQ(answer.results["1"].best(), "swe");
    // A failure may come before a version is known, so it carries the schema's.
    EXPECT_EQ(ask(server.port(), request("", "1.00")).version, "1.01");
}

TEST(ServingTest, RefusesMistakesAndChangesNothing) {
    const Installation installation;
    Server server(installation);
    ASSERT_TRUE(ask(server.port(), twoLanguages()).success);
    const auto before = classesOf(server.port(), "test_engswe");
    const std::string word = texts(text("t", "word"));
    const std::string train = "<train id=\"1\" className=\"swe\" textId=\"t\"/>\n";
    const std::string rolledBack = "Therefore any previous call in the request was rollbacked";
    struct Row {
        std::string request;
        int code;
        std::vector<std::string> words;
    };
    const Row rows[] = {
        {request(readCalls(information("nobody"))),
         4000,
         {"The requested classifier could not be found. './classifiers//nobody.dat'.\nCall id: i\nReadCall: "
          "getInformation\n\nOne of the read calls failed."}},
        {request(word + writeCalls("nobody", train)),
         4000,
         {"could not be found", "WriteCall: train", rolledBack}},
        {twoLanguages(), 4000, {"already exists (in memory)", "Call id: call_1", rolledBack}},
        {request(word +
                 writeCalls("test_engswe", train + "<train id=\"2\" className=\"fin\" textId=\"t\"/>\n")),
         4000,
         {"Trying to train on a class that doesn't exist. Class name 'fin'.\nCall id: 2", rolledBack}},
        {request(word + writeCalls("test_engswe", train + "<addClass id=\"2\" className=\"swe\"/>\n")),
         4000,
         {"Trying to add an already existing class with the name 'swe'."}},
        {request(writeCalls("test_engswe", "<addClass id=\"2\" className=\"\"/>\n")),
         4000,
         {"Trying to add a class with an empty name."}},
        {request(writeCalls("test_engswe", "<removeClass id=\"2\" className=\"a&lt;b\"/>\n")),
         4000,
         {"Trying to remove a nonexisting class with the name 'a<b'."}},
        {request(word + writeCalls("test_engswe",
                                   train + "<remove id=\"2\"/>\n<addClass id=\"3\" className=\"x\"/>\n")),
         4000,
         {"marked for deletion"}},
        {request(word + "<writeCalls classifierName=\"test_engswe\" maxSize=\"1\">\n" + train +
                 "</writeCalls>\n"),
         4000,
         {"The classifier has reached the maximum allowed size of 1 bytes."}},
        // The read fails, so the write of the same request never runs.
        {request(word + writeCalls("test_engswe", train) + readCalls(information("nobody"))),
         4000,
         {"could not be found"}},
        {request(writeCalls("fresh", "<create id=\"1\"/>\n<create id=\"2\"/>\n")), 4000, {"(in memory)"}},
    };
    for (const Row& row : rows) {
        const Answer answer = ask(server.port(), row.request);
        EXPECT_FALSE(answer.success) << row.request;
        EXPECT_EQ(answer.code, row.code) << row.request;
        EXPECT_TRUE(answer.results.empty());
        for (const std::string& words : row.words) {
            EXPECT_NE(answer.message.find(words), std::string::npos) << words << "\nstands not in\n"
                                                                     << answer.message;
        }
        EXPECT_EQ(classesOf(server.port(), "test_engswe"), before) << row.request;
    }
    // What failed to come into being isn't in the way afterwards.
    EXPECT_FALSE(std::filesystem::exists(installation.classifier("fresh")));
    for (const std::string calls : {"<create id=\"1\"/>\n", "<remove id=\"1\"/>\n<remove id=\"2\"/>\n"}) {
        EXPECT_TRUE(ask(server.port(), request(writeCalls("fresh", calls))).success) << calls;
    }
    EXPECT_FALSE(std::filesystem::exists(installation.classifier("fresh")));
}

TEST(ServingTest, NamesKeepTheirBytesAndIgnoreTheCaseOfAsciiLetters) {
    const Installation installation;
    Server server(installation);
    // A class name in UTF-8 and one in Latin-1, both with everything that markup needs escaped.
    const std::string utf8 = "sm\xC3\xB6rg\xC3\xA5s &amp; &lt;br&gt;";
    const std::string latin1 = "sm\xF6rg\xE5s";
    ASSERT_TRUE(ask(server.port(),
                    request(writeCalls("Caf\xC3\xA9 One",
                                       "<create id=\"'&quot;\"/>\n<addClass id=\"2\" className=\"" + utf8 +
                                           "\"/>\n<addClass id=\"3\" className=\"" + latin1 + "\"/>\n")))
                    .success);
    const auto classes = classesOf(server.port(), "caf\xC3\xA9 oNE");
    EXPECT_EQ(classes.size(), 2u);
    EXPECT_EQ(classes.count("sm\xC3\xB6rg\xC3\xA5s & <br>"), 1u);
    EXPECT_EQ(classes.count("sm\xC3\xB6rg\xC3\xA5s"), 1u);
    EXPECT_TRUE(std::filesystem::exists(installation.classifier("caf\xC3\xA9 one")));
    EXPECT_NE(ask(server.port(), request(writeCalls("CAF\xC3\xA9 ONE", "<create id=\"1\"/>\n")))
                  .message.find("already exists"),
              std::string::npos);
}

TEST(ServingTest, LimitsTheSizeOfARequest) {
    const Installation installation;
    Settings settings;
    settings.maxInput = "10000";
    Server server(installation, settings);
    std::string fitting = request(writeCalls("sized", "<create id=\"1\"/>\n"));
    fitting.insert(fitting.find("<writeCalls"), std::string(10000 - fitting.size(), ' '));
    EXPECT_TRUE(ask(server.port(), fitting).success);

    for (const std::size_t size : {std::size_t{10001}, std::size_t{3'000'000}}) {
        const Answer answer = ask(server.port(), fitting + std::string(size - 10000, ' '));
        EXPECT_EQ(answer.code, 4013);
        EXPECT_NE(answer.message.find("exceeded maximum input size 10000."), std::string::npos)
            << answer.message;
    }
    EXPECT_EQ(server.stop(), 0);
}

TEST(ServingTest, CapturesRequestsByteForByte) {
    const Installation installation;
    Settings settings;
    settings.saveRequests = "true";
    std::multiset<std::string> sent;
    const auto captured = [&] {
        std::multiset<std::string> contents;
        for (const auto& entry : std::filesystem::directory_iterator(installation.file("logs/requests"))) {
            contents.insert(support::readFile(entry.path()));
        }
        return contents;
    };
    for (int run = 0; run < 2; ++run) {
        Server server(installation, settings);
        for (const std::string& bytes : {request(readCalls(information("x"))), std::string("\0\xFF<", 3),
                                         request(readCalls(information("x"))), std::string()}) {
            replyTo(server.port(), bytes);
            if (!bytes.empty()) {
                sent.insert(bytes);
            }
        }
        EXPECT_EQ(server.stop(), 0);
    }
    EXPECT_EQ(captured(), sent);

    Server quiet(installation);
    replyTo(quiet.port(), "not to be kept");
    EXPECT_EQ(quiet.stop(), 0);
    EXPECT_EQ(captured(), sent);
}

TEST(ServingTest, ManyClientsSeeOnlyWhatSomeCommitProduced) {
    const Installation installation;
    Server server(installation);
    ASSERT_TRUE(
        ask(server.port(), request(writeCalls("shared",
                                              "<create id=\"1\"/>\n<addClass id=\"2\" className=\"x\"/>\n"
                                              "<addClass id=\"3\" className=\"y\"/>\n")))
            .success);
    constexpr int WRITERS = 6;
    constexpr int ROUNDS = 15;
    std::atomic<int> running = WRITERS;
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    const auto guarded = [&failures](const std::function<void()>& work) {
        try {
            work();
        } catch (const std::exception& exception) {
            ADD_FAILURE() << exception.what();
            ++failures;
        }
    };
    for (int writer = 0; writer < WRITERS; ++writer) {
        threads.emplace_back([&, writer] {
            guarded([&] {
                const std::string own = "own" + std::to_string(writer);
                for (int round = 0; round < ROUNDS; ++round) {
                    // Both classes learn in one sequence: whoever sees one without the other saw half a
                    // commit.
                    const std::string both =
                        texts(text("t", std::to_string(writer * 1000 + round))) +
                        writeCalls(
                            "shared",
                            "<train id=\"1\" className=\"x\" textId=\"t\"/>\n<train id=\"2\" className=\"y\" "
                            "textId=\"t\"/>\n");
                    failures += ask(server.port(), request(both)).success ? 0 : 1;
                    const std::string call = round % 2 == 0 ? "<create id=\"1\"/>\n" : "<remove id=\"1\"/>\n";
                    failures += ask(server.port(), request(writeCalls(own, call))).success ? 0 : 1;
                }
            });
            --running;
        });
    }
    for (int reader = 0; reader < 3; ++reader) {
        threads.emplace_back([&] {
            guarded([&] {
                while (running > 0) {
                    const auto classes = classesOf(server.port(), "shared");
                    failures += classes.size() == 2 && classes.at("x") == classes.at("y") ? 0 : 1;
                }
            });
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(classesOf(server.port(), "shared")["x"], (ClassCounts{WRITERS * ROUNDS, WRITERS * ROUNDS}));
    EXPECT_EQ(server.stop(), 0);
}

TEST(ServingTest, StopsInGoodOrderWhileClientsHoldTheirConnections) {
    const Installation installation;
    Server server(installation);
    Connection silent(server.port());
    Connection unfinished(server.port());
    // Complete to the last byte, but the client hasn't said so: the end that the stop brings about isn't the
    // client's.
    unfinished.send(request(writeCalls("never", "<create id=\"1\"/>\n")));
    // An answer on a later connection tells that the two before it have been accepted.
    ASSERT_EQ(ask(server.port(), "x").code, 4000);
    EXPECT_EQ(server.stop(), 0);
    EXPECT_EQ(silent.receive(), "");
    EXPECT_EQ(unfinished.receive(), "");
    EXPECT_FALSE(std::filesystem::exists(installation.classifier("never")));
}

TEST(ServingTest, ExamplesForNewcomersWork) {
    const Installation installation;
    Server server(installation);
    const std::string folder = MORVANE_SCHEMAS "/../../examples/requests/";
    const auto send = [&](const std::string& name) {
        return ask(server.port(), support::readFile(folder + name));
    };
    EXPECT_TRUE(send("create-and-train.xml").success);
    Answer classified = send("classify.xml");
    EXPECT_EQ(classified.results["greeting"].best(), "swedish");
    EXPECT_EQ(classified.results["question"].best(), "english");
    EXPECT_FALSE(send("keywords.xml").results["words"].keywords.empty());
    EXPECT_EQ(send("information.xml").results["classes"].classes.size(), 2u);
}

}  // namespace
}  // namespace systemtest
