#include "server/Configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "exceptions/NumberFormatException.h"
#include "server/LogLevel.h"
#include "support/TempDir.h"
#include "windows/com/xml/Library.h"
#include "windows/com/xml/XMLException.h"

namespace {

using halvern::morvane::Configuration;
using halvern::morvane::ConfigurationReader;
using testing::HasSubstr;
using testing::StartsWith;

const std::string configSchema = MORVANE_SCHEMAS "/config/ConfigSchema.xsd";
const std::string configNamespace = "http://morvane.example/1/config/ConfigSchema";

class ConfigurationTest : public testing::Test {
protected:
    // The document with these keys in this order, around which a complete one is filled up.
    std::string document(const std::vector<std::pair<std::string, std::string>>& changed) const {
        std::map<std::string, std::string> keys{
            {"port", "4000"},      {"maxInput", "1000"},       {"maxClients", "10"}, {"clientQueueSize", "5"},
            {"logMemory", "true"}, {"classifierRootPath", ""}, {"logLevel", "log"},  {"saveRequests", "0"}};
        std::string text =
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<morvane xmlns=\"" + configNamespace + "\">";
        for (const auto& [key, value] : changed) {
            text += "<" + key + ">" + value + "</" + key + ">\n";
            keys.erase(key);
        }
        for (const auto& [key, value] : keys) {
            text += "<" + key + ">" + value + "</" + key + ">\n";
        }
        return text + "</morvane>";
    }

    Configuration read(const std::string& text, const std::string& schema = configSchema) {
        support::writeFile(_folder.file("c.xml"), text);
        return ConfigurationReader(schema).read(
            _folder.file("c.xml"), [this](std::uint32_t level, bool memory) {
                _logSettings += std::to_string(level) + (memory ? "+memory" : "");
            });
    }

    template <class Failure>
    std::string failure(const std::string& text, const std::string& schema = configSchema) {
        try {
            read(text, schema);
        } catch (const Failure& e) {
            return e.what();
        }
        ADD_FAILURE() << "Nothing was thrown for " << text;
        return "";
    }

    windows::com::xml::Library _library;
    support::TempDir _folder;
    std::string _logSettings;
};

TEST_F(ConfigurationTest, KeysAreReadByNameInAnyOrder) {
    const Configuration read1 = read(document({{"saveRequests", "TRUE"},
                                               {"port", "65535"},
                                               {"logLevel", "Failure"},
                                               {"maxClients", "2147483647"},
                                               {"maxInput", "-2147483648"},
                                               {"clientQueueSize", " 12abc"},
                                               {"classifierRootPath", "/srv/\xC3\xA5 &amp; co"},
                                               {"logMemory", "1"}}));
    EXPECT_EQ(read1.port, 65535);
    EXPECT_EQ(read1.maxInput, -2147483647 - 1);
    EXPECT_EQ(read1.maxClients, 2147483647);
    EXPECT_EQ(read1.clientQueueSize, 12);
    EXPECT_EQ(read1.classifierRootPath, "/srv/\xC3\xA5 & co");
    EXPECT_EQ(read1.logLevel, 2u);
    EXPECT_TRUE(read1.logMemory && read1.saveRequests);
    EXPECT_EQ(_logSettings, "2+memory");
    EXPECT_THAT(read1.document, HasSubstr("<port>65535</port>\n<logLevel>Failure</logLevel>"));

    const Configuration read2 = read(document({{"logMemory", "yes"}, {"saveRequests", "on"}}));
    EXPECT_FALSE(read2.logMemory || read2.saveRequests);
    EXPECT_EQ(read2.classifierRootPath, "");
}

TEST_F(ConfigurationTest, BadValuesAreToldInWords) {
    using exceptions::NumberFormatException;
    using windows::com::xml::ValidateException;
    EXPECT_EQ(failure<NumberFormatException>(document({{"port", "65536"}})),
              "Error converting [65536] to a number. The number is too large.");
    EXPECT_EQ(failure<NumberFormatException>(document({{"port", "-1"}})),
              "Error converting [-1] to a number. The number is too small.");
    EXPECT_EQ(failure<NumberFormatException>(document({{"maxInput", ""}})),
              "The empty string cannot be parsed into an integer");
    EXPECT_EQ(failure<NumberFormatException>(document({{"clientQueueSize", "many"}})),
              "Error parsing the string [many] to a number");
    EXPECT_EQ(failure<NumberFormatException>(document({{"maxClients", "2147483648"}})),
              "Error converting [2147483648] to a number. The number is too large.");
    EXPECT_EQ(failure<halvern::morvane::logLevel::LogLevelException>(document({{"logLevel", "Loud"}})),
              "Couldn't convert the string log level Loud to any existing level.");
    for (const char* clients : {"0", "-1", "", "ten"}) {
        EXPECT_THAT(failure<ValidateException>(document({{"maxClients", clients}})),
                    StartsWith("Problems validating the xml document.\r\nError Code: "));
    }
    EXPECT_EQ(_logSettings, "") << "The log is set only once its own keys are read";
}

TEST_F(ConfigurationTest, DocumentsThatBreakTheSchemaAreRefused) {
    const std::string whole = document({});
    const std::string key = "<logMemory>true</logMemory>";
    const auto with = [&](const std::string& replacement) {
        std::string text = whole;
        return text.replace(text.find(key), key.size(), replacement);
    };
    for (const std::string& text : {with(""), with(key + key), with(key + "<other/>"),
                                    std::string("<morvane/>"), "<other xmlns='" + configNamespace + "'/>"}) {
        EXPECT_THAT(failure<windows::com::xml::ValidateException>(text),
                    StartsWith("Problems validating the xml document.\r\n"))
            << text;
    }
    using windows::com::xml::DocumentException;
    EXPECT_THAT(
        failure<DocumentException>("<morvane>"),
        StartsWith("Error when loading the XML document " + _folder.file("c.xml") + "\n\nError Code: "));
    EXPECT_THAT(
        failure<DocumentException>(whole, _folder.file("none.xsd")),
        StartsWith("Error when loading the XML document " + _folder.file("none.xsd") + "\n\nError Code: "));
}

TEST_F(ConfigurationTest, ReadingHoldsAgainstALooserSchema) {
    support::writeFile(_folder.file("loose.xsd"), R"(<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema"
        targetNamespace="http://other/" elementFormDefault="qualified"><xs:element name="morvane"/>
        <xs:element name="other"/></xs:schema>)");
    const auto inOther = [](std::string text) {
        return text.replace(text.find(configNamespace), configNamespace.size(), "http://other/");
    };
    const std::string loose = _folder.file("loose.xsd");
    const std::string exactlyOne = "Exactly one element matching the string mv:";
    EXPECT_EQ(read(inOther(document({})), loose).port, 4000) << "The namespace comes out of the schema";
    EXPECT_EQ(failure<windows::com::xml::ElementException>(
                  inOther(document({{"saveRequests", ""}, {"saveRequests", ""}})), loose),
              exactlyOne + "saveRequests is allowed but 2 was found.\n");
    EXPECT_EQ(_logSettings, "0+memory0+memory") << "The last key is read after the log is set";
    EXPECT_EQ(failure<windows::com::xml::ElementException>("<morvane xmlns='http://other/'/>", loose),
              exactlyOne + "port is allowed but 0 was found.\n");
    EXPECT_EQ(failure<windows::com::xml::DocumentException>("<other xmlns='http://other/'/>", loose),
              exactlyOne + "morvane is allowed but 0 was found.\n");
}

}  // namespace
