#include "server/XmlResponseImpl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

TEST(XmlResponseImplTest, EveryAnswerShowsTheClassesOfItsOwnClassifier) {
    const auto response = newResponse();
    classifier::Classification two(0.5);
    two.setProbability("b", 0.9999999);
    two.setProbability("R&D", 0.000012345);
    classifier::Classification one(1.0);
    one.setProbability("c", 1e-300);
    std::string expected;
    for (const auto* const each : {&two, &one, &two, &two}) {
        response->classify("1", *each);
        expected += "\t<classify id=\"1\">\n\t\t<classification textCoverage=";
        expected += each == &one ? "\"1\">\n\t\t\t<class className=\"c\" p=\"1e-300\"/>\n"
                                 : "\"0.5\">\n\t\t\t<class className=\"R&amp;D\" p=\"1.2345e-05\"/>\n"
                                   "\t\t\t<class className=\"b\" p=\"1\"/>\n";
        expected += "\t\t</classification>\n\t</classify>\n";
    }
    EXPECT_THAT(rendered(*response), HasSubstr("<readCalls>\n" + expected + "\t</readCalls>"));
}

}  // namespace
}  // namespace halvern::morvane
