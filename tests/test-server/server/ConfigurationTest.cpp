#include "server/Configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "server/LogLevel.h"
#include "support/Failure.h"
#include "system/Program.h"
#include "windows/com/xml/Library.h"

namespace halvern::morvane {
namespace {

using systemtest::configuration;
using testing::HasSubstr;
using testing::StartsWith;

class ConfigurationTest : public testing::Test {
protected:
    Configuration read(const std::string& text) {
        support::writeFile(_folder.file("c.xml"), text);
        return ConfigurationReader(_schema).read(
            _folder.file("c.xml"), [this](std::uint32_t level, bool memory) {
                _logSettings += std::to_string(level) + (memory ? "+memory" : "");
            });
    }

    windows::com::xml::Library _library;
    support::TempDir _folder;
    std::string _schema = MORVANE_SCHEMAS "/config/ConfigSchema.xsd";
    std::string _logSettings;
};

TEST_F(ConfigurationTest, KeysAreReadByNameInAnyOrder) {
    const std::string port = "<port>65535</port>\n";
    std::string text = configuration({.port = "65535",
                                      .maxInput = "-2147483648",
                                      .maxClients = "2147483647",
                                      .clientQueueSize = " 12abc",
                                      .classifierRootPath = "/srv/\xC3\xA5 &amp; co",
                                      .logLevel = "Failure",
                                      .logMemory = "1",
                                      .saveRequests = "TRUE"});
    text.erase(text.find(port), port.size()).insert(text.find("<logMemory>"), port);
    const Configuration first = read(text);
    EXPECT_EQ(first.port, 65535);
    EXPECT_EQ(first.maxInput, -2147483647 - 1);
    EXPECT_EQ(first.maxClients, 2147483647);
    EXPECT_EQ(first.clientQueueSize, 12);
    EXPECT_EQ(first.classifierRootPath, "/srv/\xC3\xA5 & co");
    EXPECT_EQ(first.logLevel, 2u);
    EXPECT_TRUE(first.logMemory && first.saveRequests);
    EXPECT_EQ(_logSettings, "2+memory");
    EXPECT_THAT(first.document, HasSubstr("<logLevel>Failure</logLevel>\n<port>65535</port>"));

    const Configuration second = read(configuration({.logMemory = "yes", .saveRequests = "on"}));
    EXPECT_FALSE(second.logMemory || second.saveRequests);
}

TEST_F(ConfigurationTest, WhatIsNotInOrderIsToldInWords) {
    const auto failure = [this](const std::string& text) {
        return support::failureOf<exceptions::Exception>([&] { read(text); });
    };
    const std::string loading =
        "Error when loading the XML document " + _folder.file("c.xml") + "\n\nError Code: ";
    const std::string invalid = "Problems validating the xml document.\r\nError Code: ";
    const std::string whole = configuration({});
    const std::string key = "<logMemory>false</logMemory>";
    const std::string incomplete = std::string(whole).erase(whole.find(key), key.size());
    const std::pair<std::string, std::string> cases[] = {
        {configuration({.port = "65536"}), "Error converting [65536] to a number. The number is too large."},
        {configuration({.port = "-1"}), "Error converting [-1] to a number. The number is too small."},
        {configuration({.maxInput = ""}), "The empty string cannot be parsed into an integer"},
        {configuration({.clientQueueSize = "many"}), "Error parsing the string [many] to a number"},
        {configuration({.logLevel = "Loud"}),
         "Couldn't convert the string log level Loud to any existing level."},
        {configuration({.maxClients = "0"}), invalid},
        {incomplete, invalid},
        {"<morvane>", loading},
    };
    for (const auto& [text, words] : cases) {
        EXPECT_THAT(failure(text), StartsWith(words)) << text;
    }
    EXPECT_EQ(_logSettings, "") << "The log is set only once its own keys are read";
    _schema = _folder.file("none.xsd");
    EXPECT_THAT(failure(whole), StartsWith("Error when loading the XML document " + _schema));
}

}  // namespace
}  // namespace halvern::morvane
