#include "server/systemtest/Api.h"

#include <gtest/gtest.h>

#include "support/Xml.h"

namespace halvern::morvane {
namespace {

// The bytes that clients of this system have always sent, and the schema's word that they are a request.
TEST(ApiTest, RendersTheLayoutOfRequests) {
    const support::LoadedSchema schema(MORVANE_SCHEMAS "/server/RequestSchema.xsd");
    const auto head = [](const std::string& version) {
        return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
               "<morvane xmlns=\"http://morvane.example/1/server/RequestSchema\" version=\"" +
               version + "\">\n";
    };

    ReadCallsApi reads("1.00");
    reads.addClassify("c1", "test_engswe", "t1");
    reads.addText("t1", "hej");
    reads.addText("t2", std::string("\xE5\0", 2));
    reads.addText("t3", "");
    reads.addClassify("c2", "other", "t2");
    std::string out = "left from before";
    EXPECT_EQ(&reads.render(out), &out);
    EXPECT_EQ(out,
              head("1.00") +
                  "<texts>\n<textBase64 id=\"t1\">aGVq</textBase64>\n"
                  "<textBase64 id=\"t2\">5QA=</textBase64>\n<textBase64 id=\"t3\"></textBase64>\n"
                  "</texts>\n<readCalls>\n"
                  "<classify id=\"c1\" classifierName=\"test_engswe\" textId=\"t1\"/>\n"
                  "<classify id=\"c2\" classifierName=\"other\" textId=\"t2\"/>\n</readCalls>\n</morvane>");
    EXPECT_EQ(schema.problemOf(out), "");

    WriteCallsApi writes("test_engswe", "1.01");
    writes.create("1");
    writes.addText("t", "hej");
    writes.addClass("2", "eng");
    writes.train("3", "eng", "t");
    writes.remove("4");
    EXPECT_EQ(writes.render(out),
              head("1.01") +
                  "<texts>\n<textBase64 id=\"t\">aGVq</textBase64>\n</texts>\n"
                  "<writeCalls classifierName=\"test_engswe\" maxSize=\"0\">\n<create id=\"1\"/>\n"
                  "<addClass id=\"2\" className=\"eng\"/>\n<train id=\"3\" className=\"eng\" textId=\"t\"/>\n"
                  "<remove id=\"4\"/>\n</writeCalls>\n</morvane>");
    EXPECT_EQ(schema.problemOf(out), "");

    EXPECT_EQ(ReadCallsApi("2.00").render(out), head("2.00") + "</morvane>");
    EXPECT_EQ(WriteCallsApi("c", "1.00").render(out), head("1.00") + "</morvane>");
}

}  // namespace
}  // namespace halvern::morvane
