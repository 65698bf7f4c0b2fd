#include "server/XmlResponseImpl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "classifier/Classification.h"
#include "support/Xml.h"

namespace halvern::morvane {
namespace {

const std::string NAMESPACE = "http://morvane.example/1/server/ResponseSchema";
const std::string SUCCESS = "\t<status success=\"true\" statusCode=\"2000\"/>\n";

std::unique_ptr<Response> newResponse() { return XmlResponseFactoryImpl(NAMESPACE).create({"1.01", 1.01}); }

std::string document(const std::string& content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<morvane xmlns=\"" + NAMESPACE +
           "\" version=\"1.01\">\n" + content + "</morvane>";
}

std::string rendered(Response& response) {
    std::string out = "what stood here before";
    EXPECT_EQ(&response.render(out), &out);
    return out;
}

// The rest of the layout stands where requests are answered.
TEST(XmlResponseImplTest, WhatClientsAndTextsHoldCannotBreakIt) {
    classifier::Keywords keywords(30, 0.6);
    const std::string cut("old\0new", 7);
    keywords.offer(classifier::Keyword("thee", 3, 0.9, 1, "eng"));
    keywords.offer(classifier::Keyword("hej", 3, 0.65, 1, "swe"));
    keywords.offer(classifier::Keyword(cut.data(), cut.size(), 1.0, 2, "R&D"));
    keywords.offer(classifier::Keyword("sm\xC3", 3, 0.95, 1, "sv\xE5r"));
    const auto response = newResponse();
    response->addClass("<2> & \"more\"'");
    response->classifyKeywords("k1", keywords);
    response->getInformation("i1", {{"eng", 18446744073709551615U, 4294967295U}});
    EXPECT_EQ(rendered(*response), document(SUCCESS + R"(	<readCalls>
	<classifyKeywords id="k1">
		<keywords>
			<keyword className="swe" p="0.65">hej</keyword>
			<keyword className="eng" p="0.9">the</keyword>
			<keyword className="R&amp;D" p="1">old</keyword>
			<keyword className="svår" p="0.95">smÃ</keyword>
		</keywords>
	</classifyKeywords>
		<getInformation id="i1">
			<classes>
				<classInformation className="eng">
					<uniqueFeatures>18446744073709551615</uniqueFeatures>
					<totalCount>4294967295</totalCount>
				</classInformation>
			</classes>
		</getInformation>
	</readCalls>
	<writeCalls>
		<addClass id="&lt;2&gt; &amp; &quot;more&quot;'"/>
	</writeCalls>
)"));
    const support::LoadedSchema schema(MORVANE_SCHEMAS "/server/ResponseSchema.xsd");
    EXPECT_EQ(schema.problemOf(rendered(*response)), "");
    response->clear();
    EXPECT_EQ(rendered(*response),
              document("\t<status success=\"false\" statusCode=\"5000\">No calls were found in the "
                       "response.</status>\n"));
}

TEST(XmlResponseImplTest, NumbersReadAsPrintfWritesThem) {
    for (const auto& [value, number] : std::map<double, std::string>{{1.0, "1"},
                                                                     {0.123456789, "0.123457"},
                                                                     {0.000012345, "1.2345e-05"},
                                                                     {0.9999999, "1"},
                                                                     {1e-300, "1e-300"}}) {
        classifier::Classification classification(value);
        classification.setProbability("c", value);
        const auto response = newResponse();
        response->classify("1", classification);
        EXPECT_THAT(rendered(*response),
                    testing::AllOf(testing::HasSubstr(" textCoverage=\"" + number + "\">"),
                                   testing::HasSubstr(" p=\"" + number + "\"/>")));
    }
}

}  // namespace
}  // namespace halvern::morvane
