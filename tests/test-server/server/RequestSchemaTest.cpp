#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/Xml.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

const std::string NAMESPACE = "http://morvane.example/1/server/RequestSchema";

std::string request(const std::string& content, const std::string& attributes = "version='1.01'") {
    return "<morvane xmlns=\"" + NAMESPACE + "\" " + attributes + ">\n" + content + "\n</morvane>";
}
std::string reads(const std::string& calls) { return "<readCalls>" + calls + "</readCalls>"; }
std::string writes(const std::string& calls) {
    return "<writeCalls classifierName='c'>" + calls + "</writeCalls>";
}

const std::string texts = "<texts><textBase64 id='a'>!no Base64!</textBase64><text id='b'>x</text></texts>";
const std::string classify = reads("<classify id='1' classifierName='c' textId='a'/>");
const std::string create = writes("<create id='2'/>");

class RequestSchemaTest : public testing::Test {
protected:
    std::string problem(const std::string& content) const { return _schema.problemOf(request(content)); }

    // A read call with these attribute values, on a text that is there.
    std::string problemOfNames(const std::string& id, const std::string& classifierName) const {
        return problem("<texts><text id='" + id + "'/></texts><readCalls><classify id=\"" + id +
                       "\" classifierName=\"" + classifierName + "\" textId='" + id + "'/></readCalls>");
    }

    const support::LoadedSchema _schema{MORVANE_SCHEMAS "/server/RequestSchema.xsd"};
};

TEST_F(RequestSchemaTest, WhatTheCodeRestsOnIsRefusedWithAReason) {
    EXPECT_EQ(_schema.targetNamespace(), NAMESPACE);
    EXPECT_EQ(_schema.version(), "1.01");
    const std::string allReads = reads(
        "<getInformation id='1' classifierName='c'/><classifyKeywords id='2' classifierName='d' "
        "textId='b'/><classify id='3' classifierName='C' textId='b'/>");
    const std::string allWrites =
        "<writeCalls classifierName='c' maxSize='not judged here'><untrain id='4' className='' textId='a'/>"
        "<train id='5' className='x' textId='a'/><removeClass id='6' className='&amp;&lt;&gt;&quot; /'/>"
        "<addClass id='7' className='y'/><remove id='8'/><create id='9'/></writeCalls>";
    for (const std::string& content : {create, texts + allReads + allWrites, texts + allWrites + allReads}) {
        EXPECT_EQ(problem(content), "");
    }
    EXPECT_EQ(_schema.problemOf(request(create, "version='1.00'")), "");

    const std::string cases[][2] = {
        {request(texts), "Missing child element(s)"},
        {request(texts + writes("<train id='1' className='x' textId='A'/>")),
         "No match found for key-sequence ['A']"},
        {request("<texts><text id='a'/><textBase64 id='a'/></texts>" + classify),
         "Duplicate key-sequence ['a']"},
        {request(writes("<create id='1'/><remove id='1'/>")), "Duplicate key-sequence ['1']"},
        {request(reads("<create id='1'/>")), "create': This element is not expected"},
        {request("<writeCalls><create id='1'/></writeCalls>"), "'classifierName' is required"},
        {request("<writeCalls classifierName='c' classifierSubDir='d'><create id='1'/></writeCalls>"),
         "'classifierSubDir' is not allowed"},
        {request("<readCalls xmlns:m='" + NAMESPACE +
                 "'><getInformation xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' "
                 "xsi:type='m:WriteCall' id='1'/></readCalls>"),
         "type"},
    };
    for (const auto& [document, reason] : cases) {
        EXPECT_THAT(
            _schema.problemOf(document),
            AllOf(StartsWith("Problems validating the xml document.\r\nError Code: "), HasSubstr(reason)))
            << document;
    }
}

TEST_F(RequestSchemaTest, NamesCannotLeaveTheirDirectoryAndHaveLimits) {
    for (int byte = 1; byte < 256; ++byte) {
        const bool isControl = byte < 0x20 || byte == 0x7F;
        const bool isSeparator =
            std::string("/\\:*?\"<>|").find(static_cast<char>(byte)) != std::string::npos;
        const std::string reference = "&#" + std::to_string(byte) + ";";
        EXPECT_EQ(problemOfNames("1", "x" + reference + "x").empty(), !isControl && !isSeparator) << byte;
        EXPECT_EQ(problemOfNames("1", reference).empty(), !isControl && !isSeparator && byte != '.') << byte;
        EXPECT_EQ(problemOfNames("x" + reference, "c").empty(), !isControl) << byte;
        EXPECT_EQ(problem(writes("<addClass id='1' className='" + reference + "'/>")).empty(), !isControl);
    }
    EXPECT_NE(problemOfNames("1", "&#x100;"), "") << "It has no byte";
    const auto repeated = [](std::size_t count) { return std::string(count, '\xE5'); };
    EXPECT_EQ(problemOfNames(repeated(256), repeated(128)), "");
    EXPECT_NE(problemOfNames(repeated(257), "c"), "");
    EXPECT_NE(problemOfNames("1", repeated(129)), "");
    EXPECT_NE(problemOfNames("", "c"), "");
    EXPECT_NE(problemOfNames("1", ""), "");
    EXPECT_EQ(problem(writes("<addClass id='1' className='" + repeated(256) + "'/>")), "");
    EXPECT_NE(problem(writes("<addClass id='1' className='" + repeated(257) + "'/>")), "");
}

}  // namespace
