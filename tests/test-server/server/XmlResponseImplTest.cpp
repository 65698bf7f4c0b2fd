#include "server/XmlResponseImpl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "classifier/Classification.h"
#include "support/Xml.h"

namespace halvern::morvane {
namespace {

using testing::AllOf;
using testing::HasSubstr;

const std::string NAMESPACE = "http://morvane.example/1/server/ResponseSchema";

std::unique_ptr<Response> newResponse() { return XmlResponseFactoryImpl(NAMESPACE).create({"1.01", 1.01}); }

std::string rendered(Response& response) {
    std::string out = "what stood here before";
    EXPECT_EQ(&response.render(out), &out);
    return out;
}

// The layout stands where requests are answered.
TEST(XmlResponseImplTest, WhatClientsAndTextsHoldCannotBreakIt) {
    classifier::Keywords keywords(30, 0.6);
    const std::string cut("old\0new", 7);
    keywords.offer(classifier::Keyword(cut.data(), cut.size(), 1.0, 2, "R&D"));
    keywords.offer(classifier::Keyword("sm\xC3", 3, 0.65, 1, "sv\xE5r"));
    const auto response = newResponse();
    response->addClass("<2> & \"more\"'");
    response->classifyKeywords("k1", keywords);
    response->getInformation("i1", {{"eng", 18446744073709551615U, 4294967295U}});
    EXPECT_THAT(
        rendered(*response),
        AllOf(HasSubstr("<keyword className=\"R&amp;D\" p=\"1\">old</keyword>"),
              HasSubstr("<keyword className=\"sv\xC3\xA5r\" p=\"0.65\">sm\xC3\x83</keyword>"),
              HasSubstr("<uniqueFeatures>18446744073709551615<"), HasSubstr("<totalCount>4294967295<"),
              HasSubstr("<addClass id=\"&lt;2&gt; &amp; &quot;more&quot;'\"/>")));
    const support::LoadedSchema schema(MORVANE_SCHEMAS "/server/ResponseSchema.xsd");
    EXPECT_EQ(schema.problemOf(rendered(*response)), "");
    response->clear();
    EXPECT_THAT(rendered(*response), HasSubstr("statusCode=\"5000\">No calls were found in the response."));
}

TEST(XmlResponseImplTest, NumbersReadAsPrintfWritesThem) {
    for (const auto& [value, number] : std::map<double, std::string>{
             {0.123456789, "0.123457"}, {0.000012345, "1.2345e-05"}, {0.9999999, "1"}, {1e-300, "1e-300"}}) {
        classifier::Classification classification(value);
        classification.setProbability("c", value);
        const auto response = newResponse();
        response->classify("1", classification);
        EXPECT_THAT(rendered(*response), AllOf(HasSubstr(" textCoverage=\"" + number + "\">"),
                                               HasSubstr(" p=\"" + number + "\"/>")));
    }
}

}  // namespace
}  // namespace halvern::morvane
