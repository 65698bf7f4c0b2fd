#include "server/Answer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/ClientRun.h"
#include "support/ServerInMemory.h"

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
    EXPECT_EQ(answer.classification("1").classes.front().className, "b\xC3\xA4");
    EXPECT_EQ(answer.classification("1").classes.front().probability, 1.5e-05);
    EXPECT_EQ(answer.classification("1").best().className, "z & y");
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
         {std::string("HTTP/1.1 400 Bad Request\r\n\r\n"), std::string("<html/>"),
          whole.substr(0, whole.size() / 2), whole.substr(0, whole.size() - 4), support::response(""),
          support::response("<status success=\"perhaps\" statusCode=\"2000\"/>"),
          support::response("<status success=\"true\" statusCode=\"many\"/>"),
          success("<readCalls><classify id=\"1\"><classification/></classify></readCalls>"),
          success("<readCalls><classify id=\"1\"><classification><class p=\"1\"/></classification></classify>"
                  "</readCalls>")}) {
        const Failure failure = clientFailureOf([&] { Answer::parse(bytes).classification("1"); });
        EXPECT_EQ(failure.code, ExitCode::UNREACHABLE) << bytes;
        EXPECT_THAT(failure.message, HasSubstr("no answer of a Morvane server"));
    }
}

// The words are those of the server, which renders them here.
TEST(AnswerTest, ARefusalTellsTheServersWordsTheCallAndWhatToDo) {
    RequestWriter request("mail");
    request.create();
    request.train("spam", request.addText("x"), "a.txt");
    const struct {
        int code;
        std::string text;
        std::string call;
        std::string hint;
    } cases[] = {
        {4000,
         "Trying to train on a class that doesn't exist. Class name 'Call id: 1'.\nCall id: 2\nWriteCall: "
         "train\n\nOne of the write calls failed.",
         "train spam with a.txt", "add-class"},
        {4000, "The requested classifier could not be found. 'p'.\nCall id: 77\nReadCall: classify", "",
         "morvane create"},
        {4000, "A call that nobody made.\nCall id: 0\nReadCall: classify", "", ""},
        {4000, "Something new & <strange>.", "", "Nothing was changed"},
        {4013, "Client with id 3 exceeded maximum input size 1000.", "", "maxInput"},
        {5030, "", "", "memory"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.text);
        const Answer answer = Answer::parse(support::ServerInMemory::refusal(each.code, each.text));
        EXPECT_FALSE(answer.isSuccess());
        const Failure failure = refusal(answer, request);
        EXPECT_EQ(failure.code, ExitCode::REFUSED);
        EXPECT_EQ(failure.status, each.code);
        EXPECT_EQ(failure.call, each.call);
        EXPECT_THAT(failure.message, HasSubstr(each.text));
        EXPECT_THAT(failure.hint, HasSubstr(each.hint));
    }
}

}  // namespace
}  // namespace halvern::morvane::client
