#include "config/ConfigCheck.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/ClientRun.h"
#include "system/Program.h"

namespace halvern::morvane::client {
namespace {

using systemtest::configuration;

class ConfigCheckTest : public testing::Test, protected support::ClientRun {
protected:
    ConfigCheckTest() {
        programFolder = folder.path() + "/";
        std::filesystem::create_directory_symlink(std::filesystem::path(MORVANE_SCHEMAS).parent_path(),
                                                  folder.file("xml"));
    }
    ~ConfigCheckTest() override { EXPECT_TRUE(servers.empty()) << "No server is needed for any of it"; }

    // What is said of it, up to the sentence at the end.
    std::vector<std::string> findings(const std::string& document) {
        write("c.xml", document);
        std::istringstream lines(line("config check @c.xml").out);
        std::vector<std::string> found;
        for (std::string text; std::getline(lines, text) && !text.starts_with("c.xml: ");) {
            found.push_back(text);
        }
        return found;
    }
};

TEST_F(ConfigCheckTest, EveryComplaintIsToldAtOnceAndWhatIsTakenOtherwiseThanMeantIsNoted) {
    const auto settings = [](systemtest::Settings wanted) {
        wanted.port = wanted.port == "0" ? "9400" : wanted.port;
        wanted.maxInput = wanted.maxInput == "20000000" ? "1000" : wanted.maxInput;
        return configuration(wanted);
    };
    std::string keys = settings({});
    keys.replace(keys.find("<port>9400</port>"), 17, "<prot>0</prot>");
    keys.insert(keys.find("<logLevel>"), "<maxClients>7</maxClients>");
    std::string attribute = settings({});
    attribute.replace(attribute.find("<port>"), 6, "<port unit=\"tcp\">");
    const struct {
        std::string document;
        std::vector<std::string> findings;
    } rows[] = {
        {settings({.port = "65536",
                   .maxInput = "",
                   .maxClients = "0",
                   .clientQueueSize = "-1",
                   .logLevel = "Loud"}),
         {"wrong  port: Error converting [65536]", "wrong  maxInput: The empty string",
          "wrong  maxClients: '0' isn't", "wrong  clientQueueSize: ", "wrong  logLevel: Couldn't convert"}},
        {keys,
         {"wrong  There is no key 'prot'", "wrong  The key 'port' is missing",
          "wrong  The key 'maxClients' stands there 2 times"}},
        {attribute, {"wrong  Line 3: "}},
        {settings({.classifierRootPath = "a & b"}), {"wrong  "}},
        {"", {"wrong  "}},
        {"<morvane/>", {"wrong  "}},
        {settings({.logMemory = "TRUE", .saveRequests = "0"}), {}},
        {settings({.logMemory = "yes", .saveRequests = ""}),
         {"note   logMemory: 'yes' counts as false", "note   saveRequests"}},
        {settings({.port = "00", .maxInput = "20 MB", .clientQueueSize = " 7 "}),
         {"note   port: 0 lets", "note   maxInput: hardly any", "note   maxInput: of '20 MB'"}},
        {settings({.maxInput = "-1"}), {"note   maxInput: below 0 there is no limit"}},
        {settings({.maxInput = "2147483647", .maxClients = "2147483647"}), {"note   "}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.document);
        const std::vector<std::string> found = findings(row.document);
        ASSERT_EQ(found.size(), row.findings.size()) << out << err;
        for (std::size_t i = 0; i < found.size(); ++i) {
            EXPECT_TRUE(found[i].starts_with(row.findings[i])) << found[i];
        }
        EXPECT_EQ(exitCode, !found.empty() && found[0].starts_with("wrong") ? 5 : 0);
    }
}

TEST_F(ConfigCheckTest, WhatInitWritesIsSoundAndNothingIsOverwrittenUnasked) {
    findings(line("config init").out);
    EXPECT_EQ(exitCode, 0) << out;
    EXPECT_EQ(nlohmann::json::parse(line("config init --json").out).at("configuration"), commentedConfig());
    write("config.xml", "mine");
    EXPECT_EQ(line("config init @config.xml").exitCode, 4);
    EXPECT_EQ(support::readFile(folder.file("config.xml")), "mine");
    EXPECT_EQ(line("config init @config.xml --force").exitCode, 0);
    EXPECT_EQ(support::readFile(folder.file("config.xml")), commentedConfig());
    EXPECT_EQ(line("config init @none/config.xml").exitCode, 4);
    programFolder = folder.file("none/");
    EXPECT_EQ(line("config check @config.xml").exitCode, 4) << "Without a schema, nothing is known";
}

}  // namespace
}  // namespace halvern::morvane::client
