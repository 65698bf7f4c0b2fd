#include "server/XmlResponseImpl.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "classifier/Classification.h"

namespace halvern::morvane {
namespace {

const std::string DECLARATION = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n";
const std::string SUCCESS = "\t<status success=\"true\" statusCode=\"2000\"/>\n";

std::unique_ptr<Response> newResponse(const char* version = "1.01") {
    ResponseVersion responseVersion{"", std::strcmp(version, "1.01") == 0 ? 1.01 : 1.0};
    std::strcpy(responseVersion.text, version);
    return XmlResponseFactoryImpl("http://example/R").create(responseVersion);
}

std::string document(const std::string& content, const std::string& version = "1.01") {
    return DECLARATION + "<morvane xmlns=\"http://example/R\" version=\"" + version + "\">\n" + content +
           "</morvane>";
}

std::string rendered(Response& response) {
    std::string out = "what stood here before";
    EXPECT_EQ(&response.render(out), &out);
    return out;
}

TEST(XmlResponseImplTest, WritesAClassificationAsItsVersionHasIt) {
    classifier::Classification classification(0.5);
    classification.setProbability("swe", 0.731058578);
    classification.setProbability("eng", 0.268941421);
    const std::string classes =
        "\t\t\t<class className=\"eng\" p=\"0.268941\"/>\n"
        "\t\t\t<class className=\"swe\" p=\"0.731059\"/>\n"
        "\t\t</classification>\n"
        "\t</classify>\n"
        "\t</readCalls>\n";

    const auto current = newResponse();
    current->classify("call_1", classification);
    EXPECT_EQ(rendered(*current), document(SUCCESS +
                                           "\t<readCalls>\n"
                                           "\t<classify id=\"call_1\">\n"
                                           "\t\t<classification textCoverage=\"0.5\">\n" +
                                           classes));

    const auto old = newResponse("1.00");
    old->classify("call_1", classification);
    EXPECT_EQ(rendered(*old), document(SUCCESS +
                                           "\t<readCalls>\n"
                                           "\t<classify id=\"call_1\">\n"
                                           "\t\t<classification>\n" +
                                           classes,
                                       "1.00"));
}

TEST(XmlResponseImplTest, WritesKeywordsInHeapOrderAndInformationInTableOrder) {
    classifier::Keywords keywords(30, 0.6);
    const std::string cut("old\0new", 7);
    keywords.offer(classifier::Keyword("thee", 3, 0.9, 1, "eng"));
    keywords.offer(classifier::Keyword("hej", 3, 0.65, 1, "swe"));
    keywords.offer(classifier::Keyword(cut.data(), cut.size(), 1.0, 2, "R&D"));
    keywords.offer(classifier::Keyword("sm\xC3", 3, 0.95, 1, "sv\xE5r"));

    const auto response = newResponse("1.00");
    response->classifyKeywords("k1", keywords);
    response->classifyKeywords("k2", classifier::Keywords(30, 0.6));
    response->getInformation("i1", {{"swe", 120, 455}, {"eng", 18446744073709551615U, 4294967295U}});
    response->getInformation("i2", {});
    EXPECT_EQ(rendered(*response),
              document(SUCCESS + "\t<readCalls>\n"
                                 "\t<classifyKeywords id=\"k1\">\n"
                                 "\t\t<keywords>\n"
                                 "\t\t\t<keyword className=\"swe\" p=\"0.65\">hej</keyword>\n"
                                 "\t\t\t<keyword className=\"eng\" p=\"0.9\">the</keyword>\n"
                                 "\t\t\t<keyword className=\"R&amp;D\" p=\"1\">old</keyword>\n"
                                 "\t\t\t<keyword className=\"sv\xC3\xA5r\" p=\"0.95\">sm\xC3\x83"
                                 "</keyword>\n"
                                 "\t\t</keywords>\n"
                                 "\t</classifyKeywords>\n"
                                 "\t<classifyKeywords id=\"k2\">\n"
                                 "\t\t<keywords>\n"
                                 "\t\t</keywords>\n"
                                 "\t</classifyKeywords>\n"
                                 "\t\t<getInformation id=\"i1\">\n"
                                 "\t\t\t<classes>\n"
                                 "\t\t\t\t<classInformation className=\"swe\">\n"
                                 "\t\t\t\t\t<uniqueFeatures>120</uniqueFeatures>\n"
                                 "\t\t\t\t\t<totalCount>455</totalCount>\n"
                                 "\t\t\t\t</classInformation>\n"
                                 "\t\t\t\t<classInformation className=\"eng\">\n"
                                 "\t\t\t\t\t<uniqueFeatures>18446744073709551615</uniqueFeatures>\n"
                                 "\t\t\t\t\t<totalCount>4294967295</totalCount>\n"
                                 "\t\t\t\t</classInformation>\n"
                                 "\t\t\t</classes>\n"
                                 "\t\t</getInformation>\n"
                                 "\t\t<getInformation id=\"i2\">\n"
                                 "\t\t\t<classes>\n"
                                 "\t\t\t</classes>\n"
                                 "\t\t</getInformation>\n"
                                 "\t</readCalls>\n",
                       "1.00"));
}

TEST(XmlResponseImplTest, WritesReadsBeforeWritesWhicheverCameFirst) {
    classifier::Classification classification(1.0);
    classification.setProbability("a\"<>&'b", 1.0);
    const auto response = newResponse();
    response->create("1");
    response->addClass("2 & \"more\"");
    response->classify("<3>", classification);
    response->train("4");
    response->untrain("5");
    response->removeClass("6");
    response->remove("7");
    EXPECT_EQ(rendered(*response),
              document(SUCCESS + "\t<readCalls>\n"
                                 "\t<classify id=\"&lt;3&gt;\">\n"
                                 "\t\t<classification textCoverage=\"1\">\n"
                                 "\t\t\t<class className=\"a&quot;&lt;&gt;&amp;'b\" p=\"1\"/>\n"
                                 "\t\t</classification>\n"
                                 "\t</classify>\n"
                                 "\t</readCalls>\n"
                                 "\t<writeCalls>\n"
                                 "\t\t<create id=\"1\"/>\n"
                                 "\t\t<addClass id=\"2 &amp; &quot;more&quot;\"/>\n"
                                 "\t\t<train id=\"4\"/>\n"
                                 "\t\t<untrain id=\"5\"/>\n"
                                 "\t\t<removeClass id=\"6\"/>\n"
                                 "\t\t<remove id=\"7\"/>\n"
                                 "\t</writeCalls>\n"));
}

TEST(XmlResponseImplTest, ReportsAFailureWhenNoCallHasAResult) {
    const std::string empty = document(
        "\t<status success=\"false\" statusCode=\"5000\">No calls were found in the response.</status>\n",
        "1.00");
    const auto response = newResponse("1.00");
    EXPECT_EQ(rendered(*response), empty);
    response->create("1");
    response->getInformation("2", {});
    response->clear();
    EXPECT_EQ(rendered(*response), empty);
}

std::string writtenNumber(double value) {
    classifier::Classification classification(value);
    classification.setProbability("c", value);
    const auto response = newResponse();
    response->classify("1", classification);
    const std::string out = rendered(*response);
    const std::size_t coverage = out.find("textCoverage=\"") + 14;
    const std::string number = out.substr(coverage, out.find('"', coverage) - coverage);
    EXPECT_NE(out.find(" p=\"" + number + "\""), std::string::npos) << out;
    return number;
}

TEST(XmlResponseImplTest, NumbersReadAsPrintfWritesThem) {
    const std::pair<double, const char*> rows[] = {
        {1.0, "1"},
        {0.0, "0"},
        {0.5, "0.5"},
        {0.123456789, "0.123457"},
        {0.000012345, "1.2345e-05"},
        {0.0001, "0.0001"},
        {0.99999949, "0.999999"},
        {0.9999999, "1"},
        {1e-300, "1e-300"},
        {-1.0, "-1"},
        {1e6, "1e+06"},
        {123456.5, "123456"},
    };
    for (const auto& [value, text] : rows) {
        EXPECT_EQ(writtenNumber(value), text);
    }
    std::mt19937_64 random(11);
    std::uniform_real_distribution<double> exponent(-320.0, 2.0);
    for (int round = 0; round < 5000; ++round) {
        const double value = std::pow(10.0, exponent(random));
        char expected[64];
        std::snprintf(expected, sizeof(expected), "%.6g", value);
        ASSERT_EQ(writtenNumber(value), expected);
    }
}

TEST(XmlResponseImplTest, GrowsFarBeyondItsInlineText) {
    std::vector<classifier::ClassInformation> classes;
    std::string expected;
    for (std::uint32_t i = 0; i < 2000; ++i) {
        const std::string name = "class" + std::to_string(i);
        classes.push_back({name, i, i});
        expected += "\t\t\t\t<classInformation className=\"" + name + "\">\n\t\t\t\t\t<uniqueFeatures>" +
                    std::to_string(i) + "</uniqueFeatures>\n\t\t\t\t\t<totalCount>" + std::to_string(i) +
                    "</totalCount>\n\t\t\t\t</classInformation>\n";
    }
    const auto response = newResponse();
    response->getInformation("i", classes);
    EXPECT_EQ(rendered(*response),
              document(SUCCESS + "\t<readCalls>\n\t\t<getInformation id=\"i\">\n\t\t\t<classes>\n" +
                       expected + "\t\t\t</classes>\n\t\t</getInformation>\n\t</readCalls>\n"));
}

}  // namespace
}  // namespace halvern::morvane
