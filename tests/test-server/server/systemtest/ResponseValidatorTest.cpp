#include "server/systemtest/ResponseValidator.h"

#include <gtest/gtest.h>

#include <string>

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

class ResponseValidatorTest : public testing::Test {
protected:
    windows::com::xml::Library _library;
    ResponseValidator _validator{MORVANE_SCHEMAS "/server/"};
};

TEST_F(ResponseValidatorTest, ReadsWhatAClientSees) {
    ParsedResponse read = _validator.parse(reads(
        "<classify id=\"a\"><classification textCoverage=\"0.5\"><class className=\"eng\" p=\"0.25\"/>"
        "<class className=\"s\xE5&amp;\" p=\"7.5e-05\"/></classification></classify>"
        "<classify id=\"b\"><classification><class className=\"a\" p=\"1\"/></classification></classify>"
        "<classifyKeywords id=\"c\"><keywords><keyword className=\"eng\" p=\"0.9\">p\xE5&lt;"
        "</keyword></keywords></classifyKeywords><getInformation id=\"d\"><classes>"
        "<classInformation className=\"eng\"><uniqueFeatures>120</uniqueFeatures>"
        "<totalCount>4294967295</totalCount></classInformation></classes></getInformation>"));
    EXPECT_TRUE(read.success);
    EXPECT_EQ(read.version + read.errorMessage, "1.00");
    EXPECT_EQ(read.code, 2000);
    const auto& first = std::get<Classification>(read.responses["a"]);
    EXPECT_EQ(first.getTextCoverage(), 0.5);
    EXPECT_EQ(first.getProbabilities().at("eng"), 0.25);
    EXPECT_EQ(first.getProbabilities().at("s\xE5&"), 7.5e-05);
    EXPECT_EQ(std::get<Classification>(read.responses["b"]).getTextCoverage(), -1);
    const ParsedKeyword& keyword = std::get<std::vector<ParsedKeyword>>(read.responses["c"]).at(0);
    EXPECT_EQ(keyword.className + keyword.token, "engp\xE5<");
    EXPECT_EQ(keyword.probability, 0.9);
    const ClassInformation& entry = std::get<std::vector<ClassInformation>>(read.responses["d"]).at(0);
    EXPECT_EQ(entry.name, "eng");
    EXPECT_EQ(entry.uniqueFeatures, 120u);
    EXPECT_EQ(entry.totalCount, 4294967295u);

    const ParsedResponse failed = _validator.parse(
        HEAD +
        "\t<status success=\"false\" statusCode=\"4000\">No &lt;such&gt; call.\t</status>\n</morvane>");
    EXPECT_FALSE(failed.success);
    EXPECT_EQ(failed.code, 4000);
    EXPECT_EQ(failed.errorMessage, "No <such> call.\t");
    EXPECT_TRUE(failed.responses.empty());
    EXPECT_EQ(_validator.schemaVersion(), "1.01");
}

TEST_F(ResponseValidatorTest, RefusesWhatIsNoResponse) {
    const std::string sound = HEAD + SUCCESS + "</morvane>";
    ASSERT_TRUE(_validator.parse(sound).success);
    const auto replaced = [&](const std::string& search, const std::string& replacement) {
        return std::string(sound).replace(sound.find(search), search.size(), replacement);
    };
    const std::string malformed[] = {
        "",
        sound.substr(0, sound.size() - 1),
        replaced("ResponseSchema", "RequestSchema"),
        replaced("1.00", "1.02"),
        replaced(SUCCESS, ""),
        replaced("2000", "99999999999"),
        replaced("</morvane>", "<writeCalls><classify id=\"1\"/></writeCalls></morvane>"),
        reads(""),
        reads("<train id=\"1\"/>"),
        reads("<classify id=\"1\"/>"),
    };
    for (const std::string& text : malformed) {
        EXPECT_THROW(_validator.parse(text), windows::com::xml::XMLException) << text;
    }
    // The bad ones have left nothing behind.
    EXPECT_TRUE(_validator.parse(sound).success);
}

}  // namespace
}  // namespace halvern::morvane
