#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "system/Program.h"
#include "system/Wire.h"

namespace systemtest {
namespace {

// Swedish in ISO-8859-1: a text is bytes, and these aren't UTF-8.
const std::string SWEDISH = "hej hopp detta \xE4r en text p\xE5 svenska tror jag";
const std::string ENGLISH = "hi this is a text in english I beleive";

TEST(ServingTest, TrainsAnswersAndFindsEverythingAgainAfterARestart) {
    const std::string training = request(
        texts(text("sweText", SWEDISH) + text("engText", ENGLISH)) +
        writeCalls(
            "test_engswe",
            "<create id=\"call_1\"/>\n"
            "<addClass id=\"call_2\" className=\"swe\"/>\n<addClass id=\"call_3\" className=\"eng\"/>\n"
            "<train id=\"call_4\" className=\"swe\" textId=\"sweText\"/>\n"
            "<train id=\"call_5\" className=\"eng\" textId=\"engText\"/>\n"));
    const std::string questions =
        request(texts(text("a", "hej") + text("b", "a text that is mostly english") + text("c", "qwerty")) +
                readCalls("<classify id=\"1\" classifierName=\"test_engswe\" textId=\"a\"/>\n"
                          "<classify id=\"2\" classifierName=\"test_engswe\" textId=\"b\"/>\n"
                          "<classify id=\"3\" classifierName=\"test_engswe\" textId=\"c\"/>\n"
                          "<classifyKeywords id=\"4\" classifierName=\"test_engswe\" textId=\"b\"/>\n" +
                          information("test_engswe", "5")));
    const Installation installation;
    std::string before;
    {
        Server server(installation);
        ASSERT_TRUE(ask(server.port(), training).success);
        before = replyTo(server.port(), questions);
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
    EXPECT_EQ(replyTo(server.port(), questions), before);
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

TEST(ServingTest, AClientThatOnlyHoldsAPlaceGivesWay) {
    const Installation installation;
    Server server(installation, {.maxClients = "1"});
    Connection holder(server.port());
    holder.send("<");
    EXPECT_EQ(ask(server.port(), "no request").code, 4000);
    EXPECT_EQ(holder.receive(), "");
    EXPECT_EQ(server.stop(), 0);
    EXPECT_THAT(installation.log(),
                testing::HasSubstr("Connection 1 gives way to a client that waits, after a silence of "));
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
