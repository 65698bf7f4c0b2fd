#include <gtest/gtest.h>

#include "system/Program.h"
#include "system/Wire.h"

namespace systemtest {
namespace {

const std::string FAILED = "An exception occured when trying to startup the server. ";

TEST(StartTest, ExplainsACommandLineThatItDoesNotTake) {
    struct Row {
        std::vector<std::string> arguments;
        std::string words;
    };
    const Row rows[] = {
        {{}, "No arguments specified."},
        {{"config.xml"}, "The argument line should start with a flag"},
        {{"-quiet"}, "The non optional flag -config was not found."},
        {{"-config"}, "Not enough arguments for the flag -config. 1 is required."},
        {{"-config", "a", "b"}, "Too many arguments for the flag -config. No more than 1 arguments allowed"},
        {{"-config", "a", "-config", "a"}, "The flag -config was used more than once."},
        {{"-config", "a", "-bogus"}, "The flag -bogus is not allowed"},
        {{"-start", "-config", "a"}, "The flag -config is not allowed"},
        {{"-config", ""}, "The empty string is not a flag or an argument."},
    };
    for (const Row& row : rows) {
        const Installation installation;
        EXPECT_EQ(installation.run(row.arguments)->wait(), 1) << row.words;
        for (const std::string& text : {installation.output(), installation.log()}) {
            EXPECT_NE(text.find("[Error]"), std::string::npos) << text;
            EXPECT_NE(text.find(row.words), std::string::npos) << text;
            EXPECT_NE(text.find("Morvane Server 2.40 - classifies text documents.\n\nFlags:\n"),
                      std::string::npos)
                << text;
        }
    }
}

TEST(StartTest, RefusesAConfigurationThatIsNotInOrder) {
    const auto with = [](const auto& change) {
        Settings settings;
        change(settings);
        return configuration(settings);
    };
    const auto replaced = [](std::string text, const std::string& search, const std::string& replacement) {
        return text.replace(text.find(search), search.size(), replacement);
    };
    const std::string sound = configuration({});
    const std::string invalid = FAILED + "Problems validating the xml document.\r\n";
    struct Row {
        std::string document;
        std::string words;
    };
    const Row rows[] = {
        {"", FAILED + "Error when loading the XML document config.xml\n\n"},
        {"<morvane", FAILED + "Error when loading the XML document config.xml\n\n"},
        {"<!DOCTYPE morvane>" + sound.substr(sound.find("<morvane")), FAILED},
        {replaced(sound, "ConfigSchema", "OtherSchema"), invalid},
        {replaced(sound, "<logMemory>false</logMemory>", ""), invalid},
        {replaced(sound, "</port>", "</port><port>1</port>"), invalid},
        {replaced(sound, "<port>", "<unknown/><port>"), invalid},
        {with([](Settings& s) { s.maxClients = "0"; }), invalid},
        {with([](Settings& s) { s.port = ""; }),
         FAILED + "The empty string cannot be parsed into an integer"},
        {with([](Settings& s) { s.port = "www"; }), FAILED + "Error parsing the string [www] to a number"},
        {with([](Settings& s) { s.port = "65536"; }),
         FAILED + "Error converting [65536] to a number. The number is too large."},
        {with([](Settings& s) { s.port = "-1"; }),
         FAILED + "Error converting [-1] to a number. The number is too small."},
        {with([](Settings& s) { s.clientQueueSize = "-1"; }),
         FAILED + "The queue number is too large. It has to be between 0 and 2147483647."},
        {with([](Settings& s) { s.logLevel = "loud"; }),
         FAILED + "Couldn't convert the string log level loud to any existing level."},
        {with([](Settings& s) { s.classifierRootPath = "./no/such"; }),
         FAILED + "Could not create the directory: ./no/such"},
        {with([](Settings& s) { s.classifierRootPath = "./config.xml"; }),
         FAILED + "The root training path './config.xml' doesn't exist. Make sure you create it!"},
    };
    for (const Row& row : rows) {
        const Installation installation;
        support::writeFile(installation.file("config.xml"), row.document);
        const auto process = installation.run({"-config", "config.xml"});
        EXPECT_EQ(process->wait(), 1) << row.document;
        EXPECT_NE(installation.log().find(row.words), std::string::npos) << row.words << "\nstands not in\n"
                                                                         << installation.log();
        EXPECT_EQ(installation.log().find("Starting server on port"), std::string::npos);
    }
}

TEST(StartTest, TakesKeysInAnyOrderAndWordsInAnyCase) {
    const Installation installation;
    Settings settings;
    settings.classifierRootPath = "data";
    settings.logLevel = "LOG";
    settings.logMemory = "TRUE";
    Server server(installation, settings);
    EXPECT_TRUE(ask(server.port(), request(writeCalls("c", "<create id=\"1\"/>"))).success);
    EXPECT_EQ(server.stop(), 0);
    EXPECT_TRUE(std::filesystem::exists(installation.file("data/c.dat")));
    EXPECT_TRUE(std::filesystem::is_directory(installation.file("logs/requests")));
    EXPECT_NE(installation.log().find("] [Free: "), std::string::npos);
    // What an operator looks for first: which settings hold, and on which machine.
    for (const std::string words :
         {"Initializing server v2.40", "Using config settings:\n", "System settings:\n",
          "Total physical memory: ", "Starting server on port "}) {
        EXPECT_NE(installation.log().find(words), std::string::npos) << words;
    }
}

TEST(StartTest, LogsOnlyFromTheConfiguredLevelOn) {
    const Installation installation;
    Settings settings;
    settings.logLevel = "error";
    Server server(installation, settings, {"-quiet"});
    EXPECT_EQ(ask(server.port(), "x").code, 4000);
    EXPECT_EQ(server.stop(), 0);
    EXPECT_EQ(installation.output(), "");
    EXPECT_NE(installation.log().find("Initializing server v2.40"), std::string::npos);
    EXPECT_EQ(installation.log().find("Waiting for connections..."), std::string::npos);
}

TEST(StartTest, LeavesAPortAloneThatIsTaken) {
    const Installation installation;
    BoundPort taken;
    taken.listen();
    Settings settings;
    settings.port = std::to_string(taken.port());
    support::writeFile(installation.file("config.xml"), configuration(settings));
    EXPECT_EQ(installation.run({"-config", "config.xml"})->wait(), 1);
    EXPECT_NE(installation.log().find(FAILED + "The port, " + settings.port + ", is already in use."),
              std::string::npos)
        << installation.log();
    EXPECT_EQ(installation.log().find("Starting server on port"), std::string::npos);
}

TEST(StartTest, LeavesARootAloneThatAnotherServerHolds) {
    const Installation installation;
    Server server(installation);
    ASSERT_TRUE(ask(server.port(), request(writeCalls("c", "<create id=\"1\"/>"))).success);

    const Installation second;
    Settings settings;
    settings.classifierRootPath = installation.file("classifiers");
    settings.port = std::to_string(BoundPort().port());
    support::writeFile(second.file("config.xml"), configuration(settings));
    EXPECT_EQ(second.run({"-config", "config.xml"})->wait(), 1);
    const std::string log = second.log();
    EXPECT_NE(log.find(FAILED), std::string::npos) << log;
    EXPECT_NE(log.find(settings.classifierRootPath, log.find(FAILED)), std::string::npos) << log;
    EXPECT_EQ(log.find("Starting server on port"), std::string::npos) << log;

    EXPECT_TRUE(ask(server.port(), request(readCalls(information("c")))).success);
    // The lock goes with its holder, however that ends.
    server.process().signal(SIGKILL);
    EXPECT_EQ(server.process().wait(), 128 + SIGKILL);
    Server next(second, settings);
    EXPECT_TRUE(ask(next.port(), request(readCalls(information("c")))).success);
}

}  // namespace
}  // namespace systemtest
