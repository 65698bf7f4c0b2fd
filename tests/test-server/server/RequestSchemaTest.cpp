#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/Xml.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

class RequestSchemaTest : public testing::Test {
protected:
    std::string request(const std::string& content, const std::string& attributes = "version='1.01'") const {
        return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<morvane xmlns=\"" + _schema.targetNamespace() +
               "\" " + attributes + ">\n" + content + "\n</morvane>";
    }
    std::string problem(const std::string& content) const { return _schema.problemOf(request(content)); }

    // A read call with these attribute values, on a text that is there.
    std::string problemOfNames(const std::string& id, const std::string& classifierName) const {
        return problem("<texts><text id='" + id + "'/></texts><readCalls><classify id=\"" + id +
                       "\" classifierName=\"" + classifierName + "\" textId='" + id + "'/></readCalls>");
    }

    const support::LoadedSchema _schema{MORVANE_SCHEMAS "/server/RequestSchema.xsd"};
};

const std::string texts = "<texts><textBase64 id='a'>!no Base64!</textBase64><text id='b'>x</text></texts>";
const std::string reads = "<readCalls><classify id='1' classifierName='c' textId='a'/></readCalls>";
const std::string writes = "<writeCalls classifierName='c'><create id='2'/></writeCalls>";

TEST_F(RequestSchemaTest, EveryCallOfTheLanguageIsAdmitted) {
    EXPECT_EQ(_schema.targetNamespace(), "http://morvane.example/1/server/RequestSchema");
    EXPECT_EQ(_schema.version(), "1.01");
    const std::string allReads =
        "<readCalls><getInformation id='1' classifierName='c'/><classifyKeywords id='2' classifierName='d' "
        "textId='b'/><classify id='3' classifierName='C' textId='b'/></readCalls>";
    const std::string allWrites =
        "<writeCalls classifierName='c' maxSize='not judged here'><untrain id='4' className='' textId='a'/>"
        "<train id='5' className='x' textId='a'/><removeClass id='6' className='&amp;&lt;&gt;&quot; /'/>"
        "<addClass id='7' className='y'/><remove id='8'/><create id='9'/></writeCalls>";
    for (const std::string& content :
         {texts + reads, texts + writes, writes, texts + allReads + allWrites, texts + allWrites + allReads,
          std::string("<writeCalls classifierName='c'><create id='1'></create><!-- x --></writeCalls>")}) {
        EXPECT_EQ(problem(content), "") << content;
    }
    EXPECT_EQ(_schema.problemOf(request(writes, "version='1.00'")), "");
}

TEST_F(RequestSchemaTest, WhatTheCodeRestsOnIsRefusedWithAReason) {
    const std::string ns = _schema.targetNamespace();
    struct Case {
        std::string document;
        std::string reason;
    };
    const std::vector<Case> cases{
        {request(""), "Missing child element(s)"},
        {request(texts), "Missing child element(s)"},
        {request("<readCalls/>"), "Missing child element(s)"},
        {request("<writeCalls classifierName='c'/>"), "Missing child element(s)"},
        {request("<texts/>" + writes), "Missing child element(s)"},
        {request(writes, "version='2.00'"), "'2.00' is not an element of the set"},
        {request(writes, "version='1.010'"), "'1.010' is not an element of the set"},
        {request(writes, ""), "'version' is required"},
        {request(writes, "version='1.01' other='x'"), "'other' is not allowed"},
        {"<Morvane xmlns='" + ns + "' version='1.01'>" + writes + "</Morvane>",
         "No matching global declaration"},
        {"<morvane xmlns='http://other/' version='1.01'>" + writes + "</morvane>",
         "no schema for the namespace"},
        {"<morvane version='1.01'>" + writes + "</morvane>", "no schema for the namespace"},
        {request(reads), "No match found for key-sequence ['a']"},
        {request(writes + reads), "No match found for key-sequence ['a']"},
        {request("<texts><text id='A'/></texts>" + reads), "No match found for key-sequence ['a']"},
        {request("<texts><text id='a'/><text id='a'/></texts>" + reads), "Duplicate key-sequence ['a']"},
        {request("<texts><text id='a'/><textBase64 id='a'/></texts>" + reads),
         "Duplicate key-sequence ['a']"},
        {request("<writeCalls classifierName='c'><create id='1'/><remove id='1'/></writeCalls>"),
         "Duplicate key-sequence ['1']"},
        {request(texts + "<writeCalls classifierName='c'><create id='1'/></writeCalls>" + reads),
         "Duplicate key-sequence ['1']"},
        {request(texts + reads + reads), "readCalls': This element is not expected"},
        {request(writes + writes), "writeCalls': This element is not expected"},
        {request(texts + texts + reads), "texts': This element is not expected"},
        {request(reads + texts), "texts': This element is not expected"},
        {request("<readCalls><create id='1'/></readCalls>"), "create': This element is not expected"},
        {request("<writeCalls classifierName='c'><classify id='1'/></writeCalls>"),
         "classify': This element is not expected"},
        {request("<writeCalls classifierName='c'><destroy id='1'/></writeCalls>"),
         "destroy': This element is not expected"},
        {request("<writeCalls><create id='1'/></writeCalls>"), "'classifierName' is required"},
        {request("<writeCalls classifierName='c'><create/></writeCalls>"), "'id' is required"},
        {request("<writeCalls classifierName='c'><addClass id='1'/></writeCalls>"),
         "'className' is required"},
        {request(texts + "<readCalls><classify id='1' classifierName='c'/></readCalls>"),
         "'textId' is required"},
        {request("<readCalls><getInformation id='1'/></readCalls>"), "'classifierName' is required"},
        {request("<readCalls><getInformation id='1' classifierName='c' maxKeywords='1'/></readCalls>"),
         "'maxKeywords' is not allowed"},
        {request("<writeCalls classifierName='c' classifierSubDir='d'><create id='1'/></writeCalls>"),
         "'classifierSubDir' is not allowed"},
        {request("<writeCalls classifierName='c'>x<create id='1'/></writeCalls>"), "Character content"},
        {request("<readCalls xmlns:m='" + ns +
                 "'><getInformation xmlns:xsi='http://www.w3.org/2001/"
                 "XMLSchema-instance' xsi:type='m:WriteCall' id='1'/></readCalls>"),
         "type"},
    };
    for (const Case& each : cases) {
        EXPECT_THAT(_schema.problemOf(each.document),
                    testing::AllOf(StartsWith("Problems validating the xml document.\r\nError Code: "),
                                   HasSubstr(each.reason)))
            << each.document;
    }
}

TEST_F(RequestSchemaTest, ClassifierNamesCannotLeaveTheirDirectory) {
    for (int byte = 1; byte < 256; ++byte) {
        const bool isControl = byte < 0x20 || byte == 0x7F;
        const bool isSeparator =
            std::string("/\\:*?\"<>|").find(static_cast<char>(byte)) != std::string::npos;
        const std::string reference = "&#" + std::to_string(byte) + ";";
        const std::string raw(1, static_cast<char>(byte));
        for (const std::string& form : {reference, raw}) {
            if (form == raw && (isControl || byte == '"' || byte == '<' || byte == '&')) {
                continue;
            }
            EXPECT_EQ(problemOfNames("1", "x" + form + "x").empty(), !isControl && !isSeparator) << byte;
            EXPECT_EQ(problemOfNames("1", form).empty(), !isControl && !isSeparator && byte != '.') << byte;
        }
    }
    EXPECT_EQ(problemOfNames("1", "x.."), "");
    EXPECT_NE(problemOfNames("1", ".."), "");
    EXPECT_NE(problemOfNames("1", "&#x100;"), "") << "It has no byte";
}

TEST_F(RequestSchemaTest, NamesAndIdsHaveLimits) {
    const auto repeated = [](std::size_t count) { return std::string(count, '\xE5'); };
    EXPECT_EQ(problemOfNames(repeated(256), repeated(128)), "");
    EXPECT_NE(problemOfNames(repeated(257), "c"), "");
    EXPECT_NE(problemOfNames("1", repeated(129)), "");
    EXPECT_NE(problemOfNames("", "c"), "");
    EXPECT_NE(problemOfNames("1", ""), "");
    EXPECT_EQ(problemOfNames("&quot;&apos;] | //* ../&#x80;&#xFF;", "c"), "");
    EXPECT_NE(problemOfNames("a&#10;", "c"), "");
    EXPECT_NE(problemOfNames("a&#x7F;", "c"), "");
    const auto problemOfClass = [this](const std::string& name) {
        return problem("<writeCalls classifierName='c'><addClass id='1' className='" + name +
                       "'/></writeCalls>");
    };
    EXPECT_EQ(problemOfClass(repeated(256)), "");
    EXPECT_NE(problemOfClass(repeated(257)), "");
    EXPECT_NE(problemOfClass("a&#9;"), "");
}

TEST_F(RequestSchemaTest, ManyTextsAndCallsFitIntoOneRequest) {
    const auto manyWithLast = [this](int lastTextId) {
        std::string content = "<texts>";
        std::string calls = "<readCalls>";
        for (int i = 1; i <= 10'000; ++i) {
            const std::string id = std::to_string(i);
            content += "<text id='" + id + "'/>\n";
            calls += "<classify id='" + id + "' classifierName='c' textId='" +
                     (i == 10'000 ? std::to_string(lastTextId) : id) + "'/>\n";
        }
        return problem(content + "</texts>" + calls + "</readCalls>");
    };
    EXPECT_EQ(manyWithLast(1), "");
    EXPECT_THAT(manyWithLast(10'001), HasSubstr("key-sequence ['10001']"));
}

}  // namespace
