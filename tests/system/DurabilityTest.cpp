#include <gtest/gtest.h>

#include "system/Program.h"
#include "system/Wire.h"

namespace systemtest {
namespace {

const std::string CREATE = "<create id=\"1\"/><addClass id=\"2\" className=\"x\"/>";

std::string training(const std::string& classifier, const std::string& bytes) {
    return request(texts(text("t", bytes)) +
                   writeCalls(classifier, "<train id=\"1\" className=\"x\" textId=\"t\"/>"));
}

std::string distinctWords(int count) {
    std::string words;
    for (int i = 0; i < count; ++i) {
        words.append("w").append(std::to_string(i * 7919)).append(" ");
    }
    return words;
}

TEST(DurabilityTest, ACrashLeavesNoTemporaryFileForLong) {
    const Installation installation;
    {
        Server server(installation);
        ASSERT_TRUE(ask(server.port(), request(writeCalls("c", CREATE))).success);
        EXPECT_EQ(server.stop(), 0);
    }
    const std::string leftover = installation.file("classifiers/.c.dat.AbC123.tmp");
    support::writeFile(leftover, "half a classifier");
    Server server(installation);
    EXPECT_FALSE(std::filesystem::exists(leftover));
    EXPECT_EQ(classesOf(server.port(), "c").size(), 1u);
}

TEST(DurabilityTest, AFullDiskCostsTheRequestAndNothingElse) {
    const Installation installation;
    auto server = std::make_unique<Server>(installation);
    ASSERT_TRUE(ask(server->port(), request(writeCalls("c", CREATE))).success);
    ASSERT_TRUE(ask(server->port(), training("c", "word")).success);
    const auto before = classesOf(server->port(), "c");
    const std::string file = support::readFile(installation.classifier("c"));
    const std::string large = distinctWords(100'000);
    {
        // To the server a file that may not grow is like a full disk.
        const Limit disk(server->process().id(), RLIMIT_FSIZE, 1'000'000);
        for (const std::string& failing :
             {training("c", large),
              request(texts(text("t", large)) +
                      writeCalls("fresh", CREATE + "<train id=\"3\" className=\"x\" textId=\"t\"/>"))}) {
            const Answer answer = ask(server->port(), failing);
            EXPECT_EQ(answer.code, 5000) << answer.message;
            EXPECT_NE(answer.message.find("An error occurred when executing a classifier query.\n\n"),
                      std::string::npos)
                << answer.message;
            EXPECT_TRUE(answer.results.empty());
        }
        EXPECT_EQ(classesOf(server->port(), "c"), before);
        EXPECT_EQ(support::readFile(installation.classifier("c")), file);
    }
    std::set<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(installation.file("classifiers"))) {
        left.insert(entry.path().filename());
    }
    EXPECT_EQ(left, std::set<std::string>{"c.dat"});
    EXPECT_NE(
        ask(server->port(), request(readCalls(information("fresh")))).message.find("could not be found"),
        std::string::npos);
    // Room again: the same request goes through, and the restarted server knows it.
    EXPECT_TRUE(ask(server->port(), training("c", large)).success);
    const auto after = classesOf(server->port(), "c");
    EXPECT_GT(after.at("x").totalCount, 100'000u);
    EXPECT_EQ(server->stop(), 0);
    server = std::make_unique<Server>(installation);
    EXPECT_EQ(classesOf(server->port(), "c"), after);
}

TEST(DurabilityTest, ALogThatCannotBeWrittenCostsItsEntriesOnly) {
    const Installation installation;
    Settings settings;
    settings.saveRequests = "true";
    Server server(installation, settings);
    ASSERT_TRUE(ask(server.port(), request(writeCalls("c", CREATE))).success);
    std::filesystem::rename(installation.file("logs"), installation.file("moved"));
    EXPECT_TRUE(ask(server.port(), training("c", "word")).success);
    EXPECT_NE(installation.output().find("Error when logging: An error occurred when trying to open the file "
                                         "for writing.\nFilename: './logs/log.txt'."),
              std::string::npos);
    std::filesystem::rename(installation.file("moved"), installation.file("logs"));
    EXPECT_EQ(classesOf(server.port(), "c").at("x").totalCount, 1u);
    EXPECT_EQ(server.stop(), 0);
    EXPECT_NE(installation.log().find("Closing server."), std::string::npos);
}

}  // namespace
}  // namespace systemtest
