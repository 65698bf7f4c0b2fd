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

namespace halvern::morvane {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

const std::string NAMESPACE = "http://morvane.example/1/config/ConfigSchema";

class ConfigurationTest : public testing::Test {
protected:
    using Keys = std::vector<std::pair<std::string, std::string>>;

    // The document with these keys in this order, around which a complete one is filled up.
    static std::string document(const Keys& changed, const std::string& schemaNamespace = NAMESPACE) {
        std::map<std::string, std::string> keys{
            {"port", "4000"},      {"maxInput", "1000"},       {"maxClients", "10"}, {"clientQueueSize", "5"},
            {"logMemory", "true"}, {"classifierRootPath", ""}, {"logLevel", "log"},  {"saveRequests", "0"}};
        std::string text =
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<morvane xmlns=\"" + schemaNamespace + "\">";
        const auto add = [&text](const auto& key) {
            text += "<" + key.first + ">" + key.second + "</" + key.first + ">\n";
        };
        for (const auto& key : changed) {
            add(key);
            keys.erase(key.first);
        }
        for (const auto& key : keys) {
            add(key);
        }
        return text + "</morvane>";
    }

    Configuration read(const std::string& text) {
        support::writeFile(_folder.file("c.xml"), text);
        return ConfigurationReader(_schema).read(
            _folder.file("c.xml"), [this](std::uint32_t level, bool memory) {
                _logSettings += std::to_string(level) + (memory ? "+memory" : "");
            });
    }

    template <class Failure>
    std::string failure(const std::string& text) {
        try {
            read(text);
        } catch (const Failure& e) {
            return e.what();
        }
        ADD_FAILURE() << "Nothing was thrown for " << text;
        return "";
    }

    windows::com::xml::Library _library;
    support::TempDir _folder;
    std::string _schema = MORVANE_SCHEMAS "/config/ConfigSchema.xsd";
    std::string _logSettings;
};

TEST_F(ConfigurationTest, KeysAreReadByNameInAnyOrder) {
    const Configuration first = read(document({{"saveRequests", "TRUE"},
                                               {"port", "65535"},
                                               {"logLevel", "Failure"},
                                               {"maxClients", "2147483647"},
                                               {"maxInput", "-2147483648"},
                                               {"clientQueueSize", " 12abc"},
                                               {"classifierRootPath", "/srv/\xC3\xA5 &amp; co"},
                                               {"logMemory", "1"}}));
    EXPECT_EQ(first.port, 65535);
    EXPECT_EQ(first.maxInput, -2147483647 - 1);
    EXPECT_EQ(first.maxClients, 2147483647);
    EXPECT_EQ(first.clientQueueSize, 12);
    EXPECT_EQ(first.classifierRootPath, "/srv/\xC3\xA5 & co");
    EXPECT_EQ(first.logLevel, 2u);
    EXPECT_TRUE(first.logMemory && first.saveRequests);
    EXPECT_EQ(_logSettings, "2+memory");
    EXPECT_THAT(first.document, HasSubstr("<port>65535</port>\n<logLevel>Failure</logLevel>"));

    const Configuration second = read(document({{"logMemory", "yes"}, {"saveRequests", "on"}}));
    EXPECT_FALSE(second.logMemory || second.saveRequests);
    EXPECT_EQ(second.classifierRootPath, "");
}

TEST_F(ConfigurationTest, WhatIsNotInOrderIsToldInWords) {
    using exceptions::Exception;
    const std::string loading =
        "Error when loading the XML document " + _folder.file("c.xml") + "\n\nError Code: ";
    const std::string invalid = "Problems validating the xml document.\r\nError Code: ";
    const std::string tooLarge = " to a number. The number is too large.";
    const std::string whole = document({});
    const std::string key = "<logMemory>true</logMemory>";
    const auto with = [&](const std::string& replacement) {
        return std::string(whole).replace(whole.find(key), key.size(), replacement);
    };
    const std::pair<std::string, std::string> cases[] = {
        {document({{"port", "65536"}}), "Error converting [65536]" + tooLarge},
        {document({{"port", "-1"}}), "Error converting [-1] to a number. The number is too small."},
        {document({{"maxInput", ""}}), "The empty string cannot be parsed into an integer"},
        {document({{"clientQueueSize", "many"}}), "Error parsing the string [many] to a number"},
        {document({{"maxClients", "2147483648"}}), "Error converting [2147483648]" + tooLarge},
        {document({{"logLevel", "Loud"}}),
         "Couldn't convert the string log level Loud to any existing level."},
        {document({{"maxClients", "0"}}), invalid},
        {document({{"maxClients", "ten"}}), invalid},
        {with(""), invalid},
        {with(key + key), invalid},
        {with(key + "<other/>"), invalid},
        {"<morvane/>", invalid},
        {"<other xmlns='" + NAMESPACE + "'/>", invalid},
        {"<morvane>", loading},
    };
    for (const auto& [text, words] : cases) {
        EXPECT_THAT(failure<Exception>(text), StartsWith(words)) << text;
    }
    EXPECT_EQ(_logSettings, "") << "The log is set only once its own keys are read";
    _schema = _folder.file("none.xsd");
    EXPECT_THAT(failure<Exception>(whole), StartsWith("Error when loading the XML document " + _schema));
}

TEST_F(ConfigurationTest, ReadingHoldsAgainstALooserSchema) {
    _schema = _folder.file("loose.xsd");
    support::writeFile(_schema, R"(<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema"
        targetNamespace="http://other/"><xs:element name="morvane"/></xs:schema>)");
    EXPECT_EQ(read(document({}, "http://other/")).port, 4000) << "The namespace comes out of the schema";
    EXPECT_EQ(failure<windows::com::xml::ElementException>(
                  document({{"saveRequests", ""}, {"saveRequests", ""}}, "http://other/")),
              "Exactly one element matching the string mv:saveRequests is allowed but 2 was found.\n");
    EXPECT_EQ(_logSettings, "0+memory0+memory") << "The last key is read after the log is set";
}

}  // namespace
}  // namespace halvern::morvane
