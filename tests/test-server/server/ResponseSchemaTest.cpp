#include <gtest/gtest.h>

#include <string>

#include "support/Xml.h"

// That it admits what the server answers is told where answers are tested.
TEST(ResponseSchemaTest, WhatNoResponseHoldsIsRefused) {
    const support::LoadedSchema schema(MORVANE_SCHEMAS "/server/ResponseSchema.xsd");
    EXPECT_EQ(schema.targetNamespace(), "http://morvane.example/1/server/ResponseSchema");
    EXPECT_EQ(schema.version(), "1.01");
    const auto problem = [&](const std::string& content, const std::string& version = "1.01") {
        return schema.problemOf("<morvane xmlns='" + schema.targetNamespace() + "' version='" + version +
                                "'>" + content + "</morvane>");
    };
    const std::string ok = "<status success='true' statusCode='2000'/>";
    const std::string information = "<getInformation id='1'><classes/></getInformation>";
    const auto classify = [&](const std::string& p, const std::string& attributes = "") {
        return ok + "<readCalls>" + information + "<classify id='1'><classification" + attributes +
               "><class className='a' p='" + p + "'/></classification></classify></readCalls>";
    };
    EXPECT_EQ(problem(classify("1.2345e-05", " textCoverage='0'"), "1.00"), "");
    const std::string writes = "<writeCalls><create id=''/></writeCalls>";
    for (const std::string& content :
         {writes, ok + ok, ok + writes + "<readCalls>" + information + "</readCalls>", ok + "<readCalls/>",
          ok + "<writeCalls/>", ok + "<writeCalls><create/></writeCalls>",
          ok + "<writeCalls><classify id='1'/></writeCalls>", classify("1,5"), classify("1", " x='1'"),
          std::string("<status success='perhaps' statusCode='2000'/>"), std::string("<status/>"),
          std::string("<status success='true' statusCode='fine'/>")}) {
        EXPECT_NE(problem(content), "") << content;
    }
    EXPECT_NE(problem(ok, "2.00"), "");
}
