#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "system/Program.h"
#include "system/Wire.h"

// The client as people start it, with the server as operators start it.
namespace systemtest {
namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;

class ClientTest : public testing::Test {
protected:
    // The address goes the way of the environment, which no unit test sees.
    std::unique_ptr<Process> start(std::vector<std::string> arguments, std::uint16_t port) {
        support::writeFile(_folder.file("output"), "");
        const std::string address = "localhost:" + std::to_string(port);
        return std::make_unique<Process>(MORVANE_CLIENT, std::move(arguments), _folder.file("output"), [&] {
            ::setenv("MORVANE_SERVER", address.c_str(), 1);
            ::setenv("HOME", _folder.path().c_str(), 1);
            ::unsetenv("XDG_CONFIG_HOME");
            const int input = ::open(_folder.file("input").c_str(), O_RDONLY);
            ::dup2(input, STDIN_FILENO);
        });
    }

    int run(std::vector<std::string> arguments, std::uint16_t port) {
        return start(std::move(arguments), port)->wait();
    }

    std::string output() const { return support::readFile(_folder.file("output")); }

    support::TempDir _folder;
};

TEST_F(ClientTest, AClassifierLivesFromCreateToRemove) {
    const Installation installation;
    const Server server(installation);
    const std::uint16_t port = server.port();
    support::writeFile(_folder.file("input"), "the house on the hill\nthe mouse in the house\n");
    support::writeFile(_folder.file("swedish.txt"), "huset vid sj\xC3\xB6n \xC3\xA4r r\xC3\xB6tt");
    const std::string name = "spr\xC3\xA5k";

    EXPECT_EQ(run({"create", name, "english", "swedish", "gone"}, port), 0) << output();
    EXPECT_EQ(run({"train", name, "english", "--lines", "-"}, port), 0) << output();
    EXPECT_EQ(output(), "Trained english of " + name + " with 2 texts.\n");
    EXPECT_EQ(run({"train", name, "swedish", _folder.file("swedish.txt"), "-t", "huset"}, port), 0)
        << output();
    EXPECT_EQ(run({"untrain", name, "swedish", "-t", "huset"}, port), 0) << output();
    EXPECT_EQ(run({"remove-class", name, "gone"}, port), 0) << output();
    EXPECT_EQ(classesOf(port, name)["swedish"].totalCount, classesOf(port, name)["swedish"].uniqueFeatures);
    EXPECT_EQ(run({"info", name}, port), 0);
    EXPECT_THAT(output(),
                AllOf(HasSubstr("english"), HasSubstr("swedish"), ContainsRegex("FEATURES +OCCURRENCES")));
    EXPECT_EQ(run({"classify", name, "-t", "a house", "-t", "huset \xC3\xA4r"}, port), 0);
    EXPECT_THAT(output(),
                AllOf(ContainsRegex("text 1 +english +0\\.99"), ContainsRegex("text 2 +swedish +1\\.0")));
    EXPECT_EQ(run({"keywords", name, "-t", "sj\xC3\xB6n", "--json"}, port), 0);
    EXPECT_THAT(output(), HasSubstr("\"word\": \"sj\xC3\xB6n\""));
    EXPECT_EQ(run({"bench", name, "-t", "a house", "--clients", "2", "--requests", "10"}, port), 0);
    EXPECT_THAT(output(), HasSubstr("answers       10 in"));

    // All or nothing: the first class of the sequence isn't added either.
    EXPECT_EQ(run({"add-class", name, "danish", "english"}, port), 1);
    EXPECT_THAT(output(), AllOf(HasSubstr("(4000) to add class english."),
                                HasSubstr("already existing class"), HasSubstr("There is nothing to do")));
    EXPECT_EQ(classesOf(port, name).count("danish"), 0U);
    support::writeFile(_folder.file("input"), request(readCalls(information(name))));
    EXPECT_EQ(run({"request", "-"}, port), 0);
    EXPECT_EQ(parse(output()).results["i"].classes, classesOf(port, name));
    EXPECT_EQ(run({"remove", name}, port), 0);
    EXPECT_EQ(run({"info", name}, port), 1);
    EXPECT_THAT(output(), HasSubstr("could not be found"));
}

TEST_F(ClientTest, WhatIsTooMuchForTheServerIsToldWithTheWayOut) {
    const Installation installation;
    Server server(installation, {.maxInput = "1000"});
    EXPECT_EQ(run({"classify", "any", "-t", std::string(5000, 'x')}, server.port()), 1);
    EXPECT_THAT(output(), AllOf(HasSubstr("(4013) to classify text."), HasSubstr("maxInput"),
                                HasSubstr("morvane import")));
    server.stop();
    EXPECT_EQ(run({"info", "any"}, server.port()), 3);
    EXPECT_THAT(output(), HasSubstr("No server listens"));
}

TEST_F(ClientTest, CtrlCEndsAWaitWith130) {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(::listen(listener, 1), 0);
    ASSERT_EQ(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);

    const auto client = start({"info", "any"}, ntohs(address.sin_port));
    const int connection = ::accept(listener, nullptr, nullptr);
    char buffer[4096];
    while (::read(connection, buffer, sizeof(buffer)) > 0) {
    }
    client->signal(SIGINT);
    EXPECT_EQ(client->wait(), 130);
    EXPECT_THAT(output(), HasSubstr("Interrupted."));
    ::close(connection);
    ::close(listener);
}

TEST_F(ClientTest, TheConfigurationThatInitWritesStartsAServer) {
    const Installation installation;
    const std::string file = installation.file("config.xml");
    EXPECT_EQ(run({"config", "init", file}, 1), 0) << output();
    EXPECT_EQ(run({"config", "check", file}, 1), 0) << output();
    std::string text = support::readFile(file);
    text.replace(text.find(">9400<"), 6, ">0<");
    support::writeFile(file, text);
    const auto server = installation.run({"-config", "config.xml"});
    EXPECT_TRUE(eventually([&] {
        return server->hasEnded() ||
               installation.log().find("Waiting for connections...") != std::string::npos;
    }));
    server->signal(SIGTERM);
    EXPECT_EQ(server->wait(), 0) << installation.output();
}

}  // namespace
}  // namespace systemtest
