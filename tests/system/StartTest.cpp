#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "system/Program.h"
#include "system/Wire.h"

namespace systemtest {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

const std::string FAILED = "An exception occured when trying to startup the server. ";

TEST(StartTest, ExplainsACommandLineThatItDoesNotTake) {
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{}, "No arguments specified."},
        {{"-quiet"}, "The non optional flag -config was not found."},
    };
    for (const auto& [arguments, words] : rows) {
        const Installation installation;
        EXPECT_EQ(installation.run(arguments)->wait(), 1);
        for (const std::string& text : {installation.output(), installation.log()}) {
            EXPECT_THAT(text, ContainsRegex("\\[Error\\][^\n]*\n" + words));
            EXPECT_THAT(text, HasSubstr("morvaneserver.exe -config config.xml\n\n"));
        }
    }
}

TEST(StartTest, RefusesAConfigurationThatIsNotInOrder) {
    BoundPort taken;
    taken.listen();
    const std::string port = std::to_string(taken.port());
    const std::pair<Settings, std::string> cases[] = {
        {{.port = port}, "The port, " + port + ", is already in use."},
        {{.maxClients = "0"}, "Problems validating the xml document.\r\n"},
        {{.clientQueueSize = "-1"}, "The queue number is too large. It has to be between 0 and 2147483647."},
        {{.classifierRootPath = "./no/such"}, "Could not create the directory: ./no/such"},
        {{.classifierRootPath = "./config.xml"},
         "The root training path './config.xml' doesn't exist. Make sure you create it!"},
    };
    for (const auto& [settings, words] : cases) {
        const Installation installation;
        support::writeFile(installation.file("config.xml"), configuration(settings));
        EXPECT_EQ(installation.run({"-config", "config.xml"})->wait(), 1);
        EXPECT_EQ(installation.run({"-test", "-config", "config.xml"})->wait(), 1);
        EXPECT_THAT(installation.log(), HasSubstr(FAILED + words));
        EXPECT_THAT(installation.log(), Not(HasSubstr("Starting server on port")));
        EXPECT_THAT(installation.log(), Not(HasSubstr("Running system tests.")));
    }
    const Installation without;
    EXPECT_EQ(without.run({"-config", "config.xml"})->wait(), 1);
    EXPECT_THAT(without.log(), HasSubstr(FAILED + "Error when loading the XML document config.xml\n\n"));
}

TEST(StartTest, DoesWhatTheConfigurationSays) {
    const Installation installation;
    Server server(installation, {.maxInput = "10000",
                                 .classifierRootPath = "data",
                                 .logLevel = "LOG",
                                 .logMemory = "TRUE",
                                 .saveRequests = "1"});
    EXPECT_TRUE(ask(server.port(), creation("c")).isSuccess());
    const Answer tooLarge = ask(server.port(), std::string(10001, ' '));
    EXPECT_EQ(tooLarge.statusCode(), 4013);
    EXPECT_EQ(tooLarge.message(), "Client with id 2 exceeded maximum input size 10000.");
    EXPECT_EQ(server.stop(), 0);
    EXPECT_TRUE(std::filesystem::exists(installation.file("data/c.dat")));
    std::vector<std::string> captured;
    for (const auto& entry : std::filesystem::directory_iterator(installation.file("logs/requests"))) {
        captured.push_back(support::readFile(entry.path()));
    }
    EXPECT_EQ(captured, std::vector<std::string>{creation("c")});
    const std::string log = installation.log();
    EXPECT_THAT(log, HasSubstr("] [Free: "));
    // What an operator looks for first: which settings hold, and on which machine.
    EXPECT_THAT(log, ContainsRegex("Executing (.|\n)*Using config settings:\n(.|\n)*<saveRequests>1(.|\n)*"
                                   "Available disk space on /: (.|\n)*Closing server."));

    Server quiet(installation, {.logLevel = "error"}, {"-quiet"});
    const std::string before = installation.output();
    EXPECT_EQ(ask(quiet.port(), "x").statusCode(), 4000);
    EXPECT_EQ(quiet.stop(), 0);
    EXPECT_EQ(installation.output(), before);
    EXPECT_EQ(installation.log().find("Waiting for connections...", log.size()), std::string::npos);
    EXPECT_NE(installation.log().find("Initializing server v2.40", log.size()), std::string::npos);
}

TEST(StartTest, LeavesARootAloneThatAnotherServerHolds) {
    const Installation installation;
    Server server(installation);
    ASSERT_TRUE(ask(server.port(), creation("c")).isSuccess());

    const Installation second;
    Settings settings{.classifierRootPath = installation.file("classifiers")};
    settings.port = std::to_string(BoundPort().port());
    support::writeFile(second.file("config.xml"), configuration(settings));
    EXPECT_EQ(second.run({"-config", "config.xml"})->wait(), 1);
    const std::string log = second.log();
    EXPECT_NE(log.find(settings.classifierRootPath, log.find(FAILED)), std::string::npos) << log;
    EXPECT_THAT(log, Not(HasSubstr("Starting server on port")));

    EXPECT_EQ(classesOf(server.port(), "c").size(), 1u);
    // The lock goes with its holder, however that ends.
    server.process().signal(SIGKILL);
    EXPECT_EQ(server.process().wait(), 128 + SIGKILL);
    const std::string leftover = installation.file("classifiers/.c.dat.AbC123.tmp");
    support::writeFile(leftover, "half a classifier");
    Server next(second, settings);
    EXPECT_FALSE(std::filesystem::exists(leftover));
    EXPECT_EQ(classesOf(next.port(), "c").size(), 1u);
}

}  // namespace
}  // namespace systemtest
