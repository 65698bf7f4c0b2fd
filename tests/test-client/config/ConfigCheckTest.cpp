#include "config/ConfigCheck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/ClientRun.h"
#include "support/TempDir.h"
#include "system/Program.h"
#include "windows/com/xml/Library.h"

namespace halvern::morvane::client {
namespace {

using support::ClientRun;
using systemtest::configuration;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

ConfigFindings check(const std::string& document) {
    const windows::com::xml::Library library;
    return checkConfig(MORVANE_SCHEMAS "/config/ConfigSchema.xsd", document);
}

TEST(ConfigCheckTest, EveryComplaintIsToldAtOnceAndNamesItsKey) {
    EXPECT_THAT(check(configuration({})).complaints, IsEmpty());
    EXPECT_THAT(check(configuration({.port = "65536",
                                     .maxInput = "",
                                     .maxClients = "0",
                                     .clientQueueSize = "-1",
                                     .classifierRootPath = "a & b",
                                     .logLevel = "Loud"}))
                    .complaints,
                ElementsAre(HasSubstr("EntityRef")));
    EXPECT_THAT(check(configuration({.port = "65536",
                                     .maxInput = "",
                                     .maxClients = "0",
                                     .clientQueueSize = "-1",
                                     .logLevel = "Loud"}))
                    .complaints,
                ElementsAre(StartsWith("port: Error converting [65536]"),
                            StartsWith("maxInput: The empty string"), StartsWith("maxClients: '0' isn't"),
                            StartsWith("clientQueueSize:"), StartsWith("logLevel: Couldn't convert")));

    std::string keys = configuration({});
    keys.replace(keys.find("<port>0</port>"), 14, "<prot>0</prot>");
    keys.insert(keys.find("<logLevel>"), "<logLevel>log</logLevel><maxClients>7</maxClients>");
    EXPECT_THAT(
        check(keys).complaints,
        ElementsAre(HasSubstr("no key 'prot'"), HasSubstr("'port' is missing"),
                    HasSubstr("'maxClients' stands there 2 times"), HasSubstr("'logLevel' stands there 2")));

    std::string attribute = configuration({});
    attribute.replace(attribute.find("<port>"), 6, "<port unit=\"tcp\">");
    EXPECT_THAT(check(attribute).complaints, ElementsAre(AllOf(StartsWith("Line 3: "), HasSubstr("unit"))));
    for (const char* document : {"", "<morvane>", "<morvane/>", "text"}) {
        EXPECT_EQ(check(document).complaints.size(), 1U) << document;
    }
}

TEST(ConfigCheckTest, WhatTheServerTakesOtherwiseThanMeantIsNoted) {
    const auto notes = [](systemtest::Settings settings) {
        settings.port = settings.port == "0" ? "9400" : settings.port;
        settings.maxInput = settings.maxInput == "20000000" ? "1000" : settings.maxInput;
        const ConfigFindings findings = check(configuration(settings));
        EXPECT_THAT(findings.complaints, IsEmpty());
        return findings.notes;
    };
    EXPECT_THAT(notes({}), IsEmpty());
    EXPECT_THAT(notes({.logMemory = "TRUE", .saveRequests = "0"}), IsEmpty());
    EXPECT_THAT(notes({.logMemory = "yes", .saveRequests = ""}),
                ElementsAre(StartsWith("logMemory: 'yes' counts as false"), StartsWith("saveRequests")));
    EXPECT_THAT(
        notes({.port = "00", .maxInput = "20 MB", .clientQueueSize = " 7 "}),
        ElementsAre(StartsWith("port: 0 lets"), HasSubstr("hardly any"), StartsWith("maxInput: of '20 MB'")));
    EXPECT_THAT(notes({.maxInput = "-1"}), ElementsAre(HasSubstr("no limit")));
    EXPECT_THAT(notes({.maxInput = "2147483647", .maxClients = "2147483647"}),
                ElementsAre(HasSubstr("This machine has less")));
}

TEST(ConfigCheckTest, WhatInitWritesIsSoundAndNothingIsOverwrittenUnasked) {
    EXPECT_THAT(check(commentedConfig()).complaints, IsEmpty());
    const support::TempDir folder;
    const std::string file = folder.file("config.xml");
    ClientRun run;
    EXPECT_EQ(run.run({"config", "init"}).out, commentedConfig());
    EXPECT_EQ(nlohmann::json::parse(run.run({"config", "init", "--json"}).out).at("configuration"),
              commentedConfig());
    support::writeFile(file, "mine");
    EXPECT_EQ(run.run({"config", "init", file}).exitCode, 4);
    EXPECT_EQ(support::readFile(file), "mine");
    EXPECT_EQ(run.run({"config", "init", file, "--force"}).exitCode, 0);
    EXPECT_EQ(support::readFile(file), commentedConfig());
    EXPECT_EQ(run.run({"config", "init", folder.file("none/config.xml")}).exitCode, 4);
    run.programFolder = folder.path() + "/";
    std::filesystem::create_directory_symlink(std::filesystem::path(MORVANE_SCHEMAS).parent_path(),
                                              folder.file("xml"));
    EXPECT_EQ(run.run({"config", "check", file}).exitCode, 0) << run.out;
    run.programFolder = folder.file("none/");
    EXPECT_EQ(run.run({"config", "check", file}).exitCode, 4) << "Without a schema, nothing is known";
    run.programFolder = folder.path() + "/";
    support::writeFile(file, "<morvane/>");
    EXPECT_EQ(run.run({"config", "check", file}).exitCode, 5);
    EXPECT_TRUE(run.servers.empty()) << "No server is needed for any of it";
}

}  // namespace
}  // namespace halvern::morvane::client
