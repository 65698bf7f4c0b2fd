#include "server/systemtest/ResponseValidator.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "exceptions/NumberFormatException.h"
#include "windows/com/xml/Library.h"
#include "windows/com/xml/XMLException.h"

namespace halvern::morvane {
namespace {

using classifier::Classification;
using classifier::ClassInformation;

const std::string HEAD =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
    "<morvane xmlns=\"http://morvane.example/1/server/ResponseSchema\" version=\"1.00\">\n";
const std::string SUCCESS = "\t<status success=\"true\" statusCode=\"2000\"/>\n";

std::string reads(const std::string& calls) {
    return HEAD + SUCCESS + "\t<readCalls>\n" + calls + "\t</readCalls>\n</morvane>";
}

std::map<std::string, double> mapOf(const Classification& classification) {
    std::map<std::string, double> map;
    for (const auto& [name, probability] : classification.getProbabilities()) {
        map.emplace(name, probability);
    }
    return map;
}

class ResponseValidatorTest : public testing::Test {
protected:
    windows::com::xml::Library _library;
    ResponseValidator _validator{MORVANE_SCHEMAS "/server/"};
};

TEST_F(ResponseValidatorTest, ReadsWhatAClientSees) {
    const ParsedResponse read = _validator.parse(
        reads("<classify id=\"a\"><classification textCoverage=\"0.5\"><class className=\"eng\" p=\"0.25\"/>"
              "<class className=\"s\xE5\" p=\"7.5e-05\"/></classification></classify>"
              "<classify id=\"b\"><classification><class className=\"&amp;\" p=\"1\"/></classification>"
              "</classify><classifyKeywords id=\"c\"><keywords><keyword className=\"eng\" p=\"0.9\">the"
              "</keyword><keyword className=\"swe\" p=\"0.65\">p\xE5&lt;</keyword></keywords>"
              "</classifyKeywords><getInformation id=\"d\"><classes><classInformation className=\"eng\">"
              "<uniqueFeatures>120</uniqueFeatures><totalCount>4294967295</totalCount></classInformation>"
              "</classes></getInformation>"));
    EXPECT_EQ(read.version, "1.00");
    EXPECT_TRUE(read.success);
    EXPECT_EQ(read.code, 2000);
    EXPECT_EQ(read.errorMessage, "");
    ASSERT_EQ(read.responses.size(), 4u);
    const auto& first = std::get<Classification>(read.responses.at("a"));
    EXPECT_EQ(first.getTextCoverage(), 0.5);
    EXPECT_EQ(mapOf(first), (std::map<std::string, double>{{"eng", 0.25}, {"s\xE5", 7.5e-05}}));
    const auto& second = std::get<Classification>(read.responses.at("b"));
    EXPECT_EQ(second.getTextCoverage(), -1);
    EXPECT_EQ(mapOf(second), (std::map<std::string, double>{{"&", 1}}));
    const auto& keywords = std::get<std::vector<ParsedKeyword>>(read.responses.at("c"));
    ASSERT_EQ(keywords.size(), 2u);
    EXPECT_EQ(keywords[0].className, "eng");
    EXPECT_EQ(keywords[0].probability, 0.9);
    EXPECT_EQ(keywords[1].token, "p\xE5<");
    const auto& classes = std::get<std::vector<ClassInformation>>(read.responses.at("d"));
    ASSERT_EQ(classes.size(), 1u);
    EXPECT_EQ(classes[0].name, "eng");
    EXPECT_EQ(classes[0].uniqueFeatures, 120u);
    EXPECT_EQ(classes[0].totalCount, 4294967295u);

    const ParsedResponse failed = _validator.parse(
        HEAD +
        "\t<status success=\"false\" statusCode=\"4000\">No &lt;such&gt; call.\t</status>\n</morvane>");
    EXPECT_FALSE(failed.success);
    EXPECT_EQ(failed.code, 4000);
    EXPECT_EQ(failed.errorMessage, "No <such> call.\t");
    EXPECT_TRUE(failed.responses.empty());
    EXPECT_EQ(_validator.schemaVersion(), "1.01");

    const ParsedResponse written = _validator.parse(
        HEAD + SUCCESS + "\t<writeCalls>\n\t\t<create id=\"1\"/>\n\t</writeCalls>\n</morvane>");
    EXPECT_TRUE(written.success);
    EXPECT_TRUE(written.responses.empty());
}

TEST_F(ResponseValidatorTest, RefusesWhatIsNoResponse) {
    const std::string sound = HEAD + SUCCESS + "</morvane>";
    ASSERT_TRUE(_validator.parse(sound).success);
    const auto replaced = [&](const std::string& search, const std::string& replacement) {
        return std::string(sound).replace(sound.find(search), search.size(), replacement);
    };
    const std::string entry = "<class className=\"c\" p=\"1\"/>";
    const std::string malformed[] = {
        "",
        std::string(1000, '\0'),
        std::string("\0", 1) + sound,
        "<",
        sound.substr(0, sound.size() - 1),
        sound + sound,
        "<!DOCTYPE morvane>" + sound.substr(sound.find('\n')),
        replaced("ResponseSchema", "RequestSchema"),
        replaced("1.00", "1.02"),
        replaced(SUCCESS, ""),
        replaced(SUCCESS, SUCCESS + SUCCESS),
        replaced("\"true\"", "\"yes\""),
        replaced(" statusCode=\"2000\"", ""),
        replaced("2000", "99999999999"),
        reads(""),
        reads("<train id=\"1\"/>"),
        reads("<classify><classification>" + entry + "</classification></classify>"),
        reads("<classify id=\"1\"/>"),
        reads("<classify id=\"1\"><classification/></classify>"),
        reads("<classify id=\"1\"><classification><class className=\"c\"/></classification></classify>"),
        reads("<classify id=\"1\"><classification><class className=\"c\" p=\"much\"/></classification>"
              "</classify>"),
        reads("<classify id=\"&#256;\"><classification>" + entry + "</classification></classify>"),
        reads("<getInformation id=\"1\"><classes><classInformation className=\"c\"><totalCount>1"
              "</totalCount></classInformation></classes></getInformation>"),
    };
    for (const std::string& text : malformed) {
        EXPECT_THROW(_validator.parse(text), windows::com::xml::XMLException) << text;
    }
    // Numbers that the schema admits.
    for (const std::string number : {"INF", "1e999", "1e-999"}) {
        EXPECT_THROW(_validator.parse(reads("<classify id=\"1\"><classification><class className=\"c\" p=\"" +
                                            number + "\"/></classification></classify>")),
                     exceptions::NumberFormatException)
            << number;
    }
    EXPECT_THROW(_validator.parse(reads("<getInformation id=\"1\"><classes><classInformation className=\"c\">"
                                        "<uniqueFeatures>18446744073709551615</uniqueFeatures><totalCount>1"
                                        "</totalCount></classInformation></classes></getInformation>")),
                 exceptions::NumberFormatException);
    // The bad ones have left nothing behind.
    EXPECT_TRUE(_validator.parse(sound).success);
}

}  // namespace
}  // namespace halvern::morvane
