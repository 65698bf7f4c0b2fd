#include <gtest/gtest.h>

#include <string>

#include "support/Xml.h"

namespace {

class ResponseSchemaTest : public testing::Test {
protected:
    std::string problem(const std::string& content, const std::string& version = "1.01") const {
        return _schema.problemOf("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<morvane xmlns=\"" +
                                 _schema.targetNamespace() + "\" version=\"" + version + "\">\n" + content +
                                 "</morvane>");
    }

    const support::LoadedSchema _schema{MORVANE_SCHEMAS "/server/ResponseSchema.xsd"};
};

const std::string ok = "\t<status success=\"true\" statusCode=\"2000\"/>\n";

TEST_F(ResponseSchemaTest, EveryPieceOfAResponseIsAdmitted) {
    EXPECT_EQ(_schema.targetNamespace(), "http://morvane.example/1/server/ResponseSchema");
    EXPECT_EQ(_schema.version(), "1.01");
    const std::string coverage =
        "\t<classify id=\"call_1\">\n\t\t<classification textCoverage=\"0.5\">\n"
        "\t\t\t<class className=\"eng\" p=\"1.2345e-05\"/>\n\t\t\t<class className=\"\xC3\xA5\" p=\"1\"/>\n"
        "\t\t</classification>\n\t</classify>\n";
    const std::string plain =
        "\t<classify id=\"c2\">\n\t\t<classification>\n\t\t\t<class className=\"eng\" p=\"0\"/>\n"
        "\t\t</classification>\n\t</classify>\n";
    const std::string keywords =
        "\t<classifyKeywords id=\"k1\">\n\t\t<keywords>\n"
        "\t\t\t<keyword className=\"swe\" p=\"0.65\">hej &lt;\xEF\xBF\xBD</keyword>\n\t\t</keywords>\n"
        "\t</classifyKeywords>\n\t<classifyKeywords id=\"k2\">\n\t\t<keywords>\n\t\t</keywords>\n"
        "\t</classifyKeywords>\n";
    const std::string information =
        "\t\t<getInformation id=\"i1\">\n\t\t\t<classes>\n\t\t\t\t<classInformation className=\"eng\">\n"
        "\t\t\t\t\t<uniqueFeatures>18446744073709551615</uniqueFeatures>\n"
        "\t\t\t\t\t<totalCount>4294967295</totalCount>\n\t\t\t\t</classInformation>\n\t\t\t</classes>\n"
        "\t\t</getInformation>\n\t\t<getInformation id=\"i2\">\n\t\t\t<classes>\n\t\t\t</classes>\n"
        "\t\t</getInformation>\n";
    const std::string reads =
        "\t<readCalls>\n" + coverage + plain + keywords + information + "\t</readCalls>\n";
    std::string writes = "\t<writeCalls>\n";
    for (const char* call : {"create", "addClass", "train", "untrain", "removeClass", "remove"}) {
        writes += std::string("\t\t<") + call + " id=\"x\"/>\n";
    }
    writes += "\t</writeCalls>\n";
    EXPECT_EQ(problem(ok + reads + writes), "");
    EXPECT_EQ(problem(ok + writes, "1.00"), "");
    for (const char* status :
         {"<status success=\"false\" statusCode=\"5000\">No calls were found in the response.</status>\n",
          "<status success=\"false\" statusCode=\"4000\">Several\r\nlines, &lt;echoed&gt; bytes "
          "\xC3\xA5\n\t</status>\n",
          "<status success=\"false\" statusCode=\"5030\">\t</status>\n"}) {
        EXPECT_EQ(problem(status), "") << status;
    }
}

TEST_F(ResponseSchemaTest, WhatNoResponseHoldsIsRefused) {
    const std::string writes = "<writeCalls><create id=''/></writeCalls>";
    for (const std::string& content :
         {std::string(), writes, ok + ok,
          ok + writes +
              "<readCalls><getInformation id='1'><classes/></getInformation>"
              "</readCalls>",
          ok + "<readCalls/>", ok + "<writeCalls/>", ok + "<texts/>",
          ok + "<writeCalls><create/></writeCalls>", ok + "<writeCalls><classify id='1'/></writeCalls>",
          ok + "<readCalls><classify id='1'><classification><class className='a' "
               "p='1,5'/></classification></classify>"
               "</readCalls>",
          ok + "<readCalls><classify id='1'><classification/></classify></readCalls>",
          std::string("<status success='perhaps' statusCode='2000'/>"),
          std::string("<status statusCode='2000'/>"),
          std::string("<status success='true' statusCode='fine'/>")}) {
        EXPECT_NE(problem(content), "") << content;
    }
    EXPECT_NE(problem(ok, "2.00"), "");
}

}  // namespace
