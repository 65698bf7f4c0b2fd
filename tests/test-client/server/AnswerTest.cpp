#include "server/Answer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "server/XmlErrorResponseImpl.h"
#include "support/ClientRun.h"

namespace halvern::morvane::client {
namespace {

using support::clientFailureOf;
using support::success;
using testing::HasSubstr;

TEST(AnswerTest, ResultsComeByTheIdOfTheirCall) {
    const Answer answer = Answer::parse(success(
        "<readCalls>"
        "<classify id=\"1\"><classification textCoverage=\"0.5\"><class className=\"b\xC3\xA4\" "
        "p=\"1.5e-05\"/>"
        "<class className=\"z &amp; y\" p=\"0.999985\"/></classification></classify>"
        "<classify id=\"2\"><classification><class className=\"a\" p=\"nan\"/><class className=\"b\" "
        "p=\"0\"/></classification></classify>"
        "<classifyKeywords id=\"3\"><keywords><keyword className=\"a\" p=\"0.7\">low</keyword>"
        "<keyword className=\"b\" p=\"0.9\">high</keyword></keywords></classifyKeywords>"
        "<getInformation id=\"4\"><classes><classInformation className=\"a\"><uniqueFeatures>18446744073</"
        "uniqueFeatures><totalCount>4294967295</totalCount></classInformation></classes></getInformation>"
        "</readCalls><writeCalls><train id=\"5\"/></writeCalls>"));
    EXPECT_TRUE(answer.isSuccess());
    const Classified& first = answer.classification("1");
    EXPECT_EQ(first.textCoverage, 0.5);
    EXPECT_EQ(first.classes.front().className, "b\xC3\xA4");
    EXPECT_EQ(first.classes.front().probability, 1.5e-05);
    EXPECT_EQ(first.best().className, "z & y");
    EXPECT_FALSE(answer.classification("2").textCoverage);
    EXPECT_EQ(answer.classification("2").best().className, "b") << "What is no number isn't the greatest";
    EXPECT_EQ(answer.keywords("3").front().word, "high");
    EXPECT_EQ(answer.information("4").front().uniqueFeatures, 18446744073U);
    EXPECT_EQ(answer.information("4").front().totalCount, 4294967295U);
    EXPECT_EQ(clientFailureOf([&] { answer.keywords("1"); }).code, ExitCode::UNREACHABLE);
    EXPECT_EQ(clientFailureOf([&] { answer.classification("6"); }).code, ExitCode::UNREACHABLE);
}

TEST(AnswerTest, BytesThatAreNoAnswerAreCalledThat) {
    const std::string whole =
        success("<readCalls><getInformation id=\"1\"><classes/></getInformation></readCalls>");
    for (const std::string& bytes :
         {std::string("x"), std::string("<html/>"), std::string("HTTP/1.1 400 Bad Request\r\n\r\n"),
          whole.substr(0, whole.size() / 2), whole.substr(0, whole.size() - 4), support::response(""),
          support::response("<status success=\"perhaps\" statusCode=\"2000\"/>"),
          support::response("<status success=\"true\" statusCode=\"many\"/>"),
          success("<readCalls><classify id=\"1\"><classification><class p=\"1\"/></classification></classify>"
                  "</readCalls>")}) {
        const Failure failure = clientFailureOf([&] { Answer::parse(bytes); });
        EXPECT_EQ(failure.code, ExitCode::UNREACHABLE) << bytes;
        EXPECT_THAT(failure.message, HasSubstr("no answer of a Morvane server"));
    }
}

// The words are those of the server, which renders them here.
TEST(AnswerTest, ARefusalTellsTheServersWordsTheCallAndWhatToDo) {
    RequestWriter request("mail");
    const std::string text = request.addText("x");
    request.create();
    request.train("spam", text, "a.txt");
    struct Case {
        int code;
        std::string text;
        std::string call;
        std::string hint;
    };
    const Case cases[] = {
        {4000,
         "Trying to train on a class that doesn't exist. Class name 'Call id: 1'.\nCall id: 2\nWriteCall: "
         "train\n\n"
         "One of the write calls failed.\n",
         "train spam with a.txt", "add-class"},
        {4000,
         "Trying to create a classifier that already exists (on disk) 'p'.\nCall id: 1\nWriteCall: "
         "create\n\n",
         "create mail", "remove"},
        {4000, "The requested classifier could not be found. 'p'.\nCall id: 77\nReadCall: classify\n", "",
         "morvane create"},
        {4000, "Something new & <strange>.", "", "Nothing was changed"},
        {4013, "Client with id 3 exceeded maximum input size 1000.", "", "maxInput"},
        {5000, "An error occurred when trying to write the file.", "", "disk full"},
        {5030, "", "", "memory"},
    };
    for (const Case& each : cases) {
        std::string bytes;
        XmlErrorResponseFactoryImpl("http://morvane.example/1/server/ResponseSchema", "1.01")
            .create()
            ->render(bytes, each.code, each.text);
        const Answer answer = Answer::parse(bytes);
        EXPECT_FALSE(answer.isSuccess());
        const Failure failure = refusal(answer, request);
        EXPECT_EQ(failure.code, ExitCode::REFUSED);
        EXPECT_EQ(failure.status, each.code);
        EXPECT_EQ(failure.call, each.call) << each.text;
        EXPECT_THAT(failure.message, HasSubstr(each.text.substr(0, each.text.find_last_not_of('\n') + 1)));
        EXPECT_THAT(failure.hint, HasSubstr(each.hint));
    }
}

}  // namespace
}  // namespace halvern::morvane::client
