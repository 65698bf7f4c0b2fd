#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "system/Program.h"
#include "system/Wire.h"

namespace systemtest {
namespace {

TEST(ServingTest, TrainsAnswersAndFindsEverythingAgainAfterARestart) {
    const auto example = [](const std::string& name) {
        return support::readFile(MORVANE_SCHEMAS "/../../examples/requests/" + name + ".xml");
    };
    const Installation installation;
    std::map<std::string, std::string> before;
    for (const bool isFirst : {true, false}) {
        Server server(installation);
        EXPECT_EQ(ask(server.port(), example("create-and-train")).isSuccess(), isFirst);
        for (const std::string name : {"classify", "keywords", "information"}) {
            const std::string answer = support::LoopbackClient(server.port()).ask(example(name));
            EXPECT_EQ(isFirst ? answer : before[name], answer);
            before[name] = answer;
        }
        EXPECT_EQ(server.stop(), 0);
    }
    const Answer classified = parse(before["classify"]);
    EXPECT_EQ(classified.classification("greeting").best().className, "swedish");
    EXPECT_EQ(classified.classification("question").best().className, "english");
    EXPECT_FALSE(parse(before["keywords"]).keywords("words").empty());
    EXPECT_EQ(parse(before["information"]).information("classes").size(), 2u);
}

TEST(ServingTest, StopsInGoodOrderWhileClientsHoldTheirConnections) {
    const Installation installation;
    Server server(installation);
    support::LoopbackClient silent(server.port());
    support::LoopbackClient unfinished(server.port());
    // Complete to the last byte, but the client hasn't said so: the end that the stop brings about isn't the
    // client's.
    unfinished.send(creation("never"));
    // An answer on a later connection tells that the two before it have been accepted.
    ASSERT_EQ(ask(server.port(), "x").statusCode(), 4000);
    EXPECT_EQ(server.stop(), 0);
    EXPECT_EQ(silent.receiveAll(), "");
    EXPECT_EQ(unfinished.receiveAll(), "");
    EXPECT_FALSE(std::filesystem::exists(installation.classifier("never")));
}

TEST(ServingTest, AClientThatOnlyHoldsAPlaceGivesWay) {
    const Installation installation;
    Server server(installation, {.maxClients = "1"});
    support::LoopbackClient holder(server.port());
    holder.send("<");
    EXPECT_EQ(ask(server.port(), "no request").statusCode(), 4000);
    EXPECT_EQ(holder.receiveAll(), "");
    EXPECT_THAT(installation.log(),
                testing::HasSubstr("Connection 1 gives way to a client that waits, after a silence of "));
}

}  // namespace
}  // namespace systemtest
