#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "system/Program.h"

namespace systemtest {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    return names;
}

int selfTest(const Installation& installation, const Settings& settings) {
    support::writeFile(installation.file("config.xml"), configuration(settings));
    return installation.run({"-test", "-config", "config.xml"})->wait();
}

TEST(SelfTestTest, PassesAgainAndAgainAndLeavesOneClassifier) {
    const Installation installation;
    // The smallest server must cope as well: clients then wait for each other.
    for (const auto& [clients, queue] : {std::pair{"20", "100"}, {"20", "100"}, {"1", "0"}}) {
        fs::remove(installation.file("output.txt"));
        EXPECT_EQ(selfTest(installation, {.maxClients = clients,
                                          .clientQueueSize = queue,
                                          .logLevel = "test",
                                          .saveRequests = "true"}),
                  0);
        const std::string output = installation.output();
        EXPECT_THAT(output, testing::EndsWith("4 tests passed!\n"));
        // Not a word of the thousands of requests in between.
        EXPECT_EQ(output.find("[Log]", output.find("Testing")), std::string::npos);
        EXPECT_EQ(output.find("[Error]"), std::string::npos) << output;
        EXPECT_EQ(namesIn(installation.file("classifiers")), std::vector<std::string>{"test_engswe.dat"});
        EXPECT_EQ(namesIn(installation.file("logs/requests")), std::vector<std::string>{});
        EXPECT_EQ(namesIn(installation.file("logs")).size(), 2u);  // log.txt and requests, no dump
        EXPECT_FALSE(fs::exists(installation.file("assertion.txt")));
    }
}

TEST(SelfTestTest, SaysWhyItFails) {
    const Installation installation;
    EXPECT_EQ(selfTest(installation, {.maxInput = "400"}), 128 + SIGABRT);
    EXPECT_EQ(installation.output().find("tests passed!"), std::string::npos);
    for (const std::string& report :
         {installation.output(), support::readFile(installation.file("assertion.txt"))}) {
        EXPECT_THAT(report, testing::HasSubstr("exceeded maximum input size 400. The built-in test needs a "
                                               "larger maxInput"));
    }
    // What it was stopped at is no hindrance later.
    EXPECT_EQ(selfTest(installation, {.maxInput = "1000"}), 0);
    EXPECT_EQ(namesIn(installation.file("classifiers")), std::vector<std::string>{"test_engswe.dat"});
}

}  // namespace
}  // namespace systemtest
