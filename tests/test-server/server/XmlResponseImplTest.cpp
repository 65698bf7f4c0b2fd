#include "server/XmlResponseImpl.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "classifier/Classification.h"
#include "support/Xml.h"

namespace halvern::morvane {
namespace {

const std::string NAMESPACE = "http://morvane.example/1/server/ResponseSchema";
const std::string SUCCESS = "\t<status success=\"true\" statusCode=\"2000\"/>\n";

std::unique_ptr<Response> newResponse(const ResponseVersion& version = {"1.01", 1.01}) {
    return XmlResponseFactoryImpl(NAMESPACE).create(version);
}

std::string document(const std::string& content, const std::string& version = "1.01") {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<morvane xmlns=\"" + NAMESPACE + "\" version=\"" +
           version + "\">\n" + content + "</morvane>";
}

std::string rendered(Response& response) {
    std::string out = "what stood here before";
    EXPECT_EQ(&response.render(out), &out);
    return out;
}

TEST(XmlResponseImplTest, WritesReadsBeforeWritesWhicheverCameFirst) {
    classifier::Classification classification(0.5);
    classification.setProbability("swe", 0.731058578);
    classification.setProbability("a\"<>&'b", 0.268941421);
    classifier::Keywords keywords(30, 0.6);
    const std::string cut("old\0new", 7);
    keywords.offer(classifier::Keyword("thee", 3, 0.9, 1, "eng"));
    keywords.offer(classifier::Keyword("hej", 3, 0.65, 1, "swe"));
    keywords.offer(classifier::Keyword(cut.data(), cut.size(), 1.0, 2, "R&D"));
    keywords.offer(classifier::Keyword("sm\xC3", 3, 0.95, 1, "sv\xE5r"));

    const auto response = newResponse();
    response->create("1");
    response->addClass("2 & \"more\"");
    response->classify("<3>", classification);
    response->train("4");
    response->classifyKeywords("k1", keywords);
    response->classifyKeywords("k2", classifier::Keywords(30, 0.6));
    response->untrain("5");
    response->removeClass("6");
    response->remove("7");
    response->getInformation("i1", {{"swe", 120, 455}, {"eng", 18446744073709551615U, 4294967295U}});
    response->getInformation("i2", {});
    EXPECT_EQ(rendered(*response), document(SUCCESS + R"(	<readCalls>
	<classify id="&lt;3&gt;">
		<classification textCoverage="0.5">
			<class className="a&quot;&lt;&gt;&amp;'b" p="0.268941"/>
			<class className="swe" p="0.731059"/>
		</classification>
	</classify>
	<classifyKeywords id="k1">
		<keywords>
			<keyword className="swe" p="0.65">hej</keyword>
			<keyword className="eng" p="0.9">the</keyword>
			<keyword className="R&amp;D" p="1">old</keyword>
			<keyword className="svår" p="0.95">smÃ</keyword>
		</keywords>
	</classifyKeywords>
	<classifyKeywords id="k2">
		<keywords>
		</keywords>
	</classifyKeywords>
		<getInformation id="i1">
			<classes>
				<classInformation className="swe">
					<uniqueFeatures>120</uniqueFeatures>
					<totalCount>455</totalCount>
				</classInformation>
				<classInformation className="eng">
					<uniqueFeatures>18446744073709551615</uniqueFeatures>
					<totalCount>4294967295</totalCount>
				</classInformation>
			</classes>
		</getInformation>
		<getInformation id="i2">
			<classes>
			</classes>
		</getInformation>
	</readCalls>
	<writeCalls>
		<create id="1"/>
		<addClass id="2 &amp; &quot;more&quot;"/>
		<train id="4"/>
		<untrain id="5"/>
		<removeClass id="6"/>
		<remove id="7"/>
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
    std::vector<std::pair<double, std::string>> rows = {
        {1.0, "1"},
        {0.0, "0"},
        {0.5, "0.5"},
        {0.123456789, "0.123457"},
        {0.000012345, "1.2345e-05"},
        {0.0001, "0.0001"},
        {0.9999999, "1"},
        {1e-300, "1e-300"},
        {-1.0, "-1"},
        {1e6, "1e+06"},
    };
    std::mt19937_64 random(11);
    std::uniform_real_distribution<double> exponent(-320.0, 2.0);
    for (int round = 0; round < 5000; ++round) {
        const double value = std::pow(10.0, exponent(random));
        char expected[64];
        std::snprintf(expected, sizeof(expected), "%.6g", value);
        rows.emplace_back(value, expected);
    }
    for (const auto& [value, number] : rows) {
        classifier::Classification classification(value);
        classification.setProbability("c", value);
        // The version of 1.00 has no coverage.
        for (const bool current : {true, false}) {
            const auto response =
                newResponse(current ? ResponseVersion{"1.01", 1.01} : ResponseVersion{"1.00", 1.0});
            response->classify("1", classification);
            ASSERT_EQ(rendered(*response),
                      document(SUCCESS + "\t<readCalls>\n\t<classify id=\"1\">\n\t\t<classification" +
                                   (current ? " textCoverage=\"" + number + "\"" : "") +
                                   ">\n\t\t\t<class className=\"c\" p=\"" + number +
                                   "\"/>\n\t\t</classification>\n\t</classify>\n\t</readCalls>\n",
                               current ? "1.01" : "1.00"));
        }
    }
}

}  // namespace
}  // namespace halvern::morvane
