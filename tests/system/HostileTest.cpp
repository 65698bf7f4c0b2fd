#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "system/Program.h"
#include "system/Wire.h"

namespace systemtest {
namespace {

// All files below a folder with what is in them, but for those that the server may write.
std::map<std::string, std::string> filesBelow(const std::string& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        const std::string name = entry.path().string();
        if (name.find("/app/logs") == std::string::npos && entry.path().filename() != "output.txt") {
            files[name] = entry.is_directory() ? "" : support::readFile(name);
        }
    }
    return files;
}

TEST(HostileTest, RequestsThatAreNotRequestsAreRefused) {
    const Installation installation;
    const std::string marker = installation.file("marker.txt");
    support::writeFile(marker, "the-marker-that-nobody-may-read");
    Server server(installation);
    const std::string create = "<create id=\"1\"/><addClass id=\"2\" className=\"x\"/>";
    ASSERT_TRUE(ask(server.port(), request(writeCalls("c", create))).success);
    // A sound classifier right outside of the root: nobody may read, overwrite or remove it by name.
    std::filesystem::copy(installation.classifier("c"), installation.file("secret.dat"));
    const auto before = filesBelow(installation.outside());

    const auto repeated = [](const std::string& piece, int count) {
        std::string all;
        for (int i = 0; i < count; ++i) {
            all += piece;
        }
        return all;
    };
    const std::string read = readCalls("<classify id=\"1\" classifierName=\"c\" textId=\"t\"/>");
    const std::string body = request("<texts><text id=\"t\">&e;</text></texts>" + read);
    const std::string afterDeclaration = body.substr(body.find("<morvane"));
    std::string bomb = "<!DOCTYPE morvane [<!ENTITY e0 \"ha\">";
    for (int level = 1; level <= 30; ++level) {
        const std::string below = "&e" + std::to_string(level - 1) + ";";
        bomb += "<!ENTITY e" + std::to_string(level) + " \"" + repeated(below, 10) + "\">";
    }
    bomb += "<!ENTITY e \"&e30;\">]>";
    std::string attributes;
    for (int i = 0; i < 50'000; ++i) {
        attributes += " a" + std::to_string(i) + "=''";
    }
    std::string random;
    for (unsigned value = 1; random.size() < 5000; value = value * 1103515245U + 12345U) {
        random += static_cast<char>(value >> 16U);
    }
    const std::string sound = request(texts(text("t", "word")) + read);
    std::vector<std::pair<std::string, std::string>> rows = {
        {"noise", random},
        {"cut by one byte", sound.substr(0, sound.size() - 1)},
        {"UTF-16", std::string("\xFF\xFE<\0m\0o\0r\0v\0a\0n\0e\0/\0>\0", 22)},
        {"entities that grow without end", bomb + afterDeclaration},
        {"an entity that reads a file",
         "<!DOCTYPE morvane [<!ENTITY e SYSTEM \"file://" + marker + "\">]>" + afterDeclaration},
        {"deep nesting", request(repeated("<texts>", 100'000))},
        {"many attributes", "<morvane" + attributes + "/>"},
        {"no calls", request(texts(text("t", "word")))},
        {"an expression for an id",
         request(
             texts(text("t", "a")) +
             readCalls(
                 "<classify id=\"1\" classifierName=\"c\" textId=\"x&quot; or &quot;1&quot;=&quot;1\"/>"))},
        {"a stylesheet and an inclusion",
         "<?xml-stylesheet href=\"file:///etc/passwd\"?><x:include "
         "xmlns:x=\"http://www.w3.org/2001/XInclude\" href=\"" +
             marker + "\"/>"},
    };
    for (const std::string& name : {std::string("../secret"), std::string("a/../../secret"),
                                    std::string("&#x2E;&#x2E;&#x2F;secret"), installation.file("secret")}) {
        for (const std::string& calls :
             {writeCalls(name, create), writeCalls(name, "<remove id=\"1\"/>"),
              writeCalls(name, "<addClass id=\"1\" className=\"y\"/>"), readCalls(information(name))}) {
            rows.emplace_back(calls, request(calls));
        }
    }
    for (const auto& [what, bytes] : rows) {
        SCOPED_TRACE(what);
        const std::string response = replyTo(server.port(), bytes);
        const Answer answer = parse(response);
        EXPECT_EQ(answer.code, 4000) << answer.message.substr(0, 500);
        EXPECT_FALSE(answer.message.empty());
        EXPECT_EQ(response.find("the-marker"), std::string::npos);
        EXPECT_TRUE(filesBelow(installation.outside()) == before);
    }
    EXPECT_EQ(server.stop(), 0);
}

TEST(HostileTest, AClientThatOnlyHoldsAPlaceGivesWay) {
    const Installation installation;
    Server server(installation, {.maxClients = "1"});
    Connection holder(server.port());
    holder.send("<");
    EXPECT_EQ(ask(server.port(), "no request").code, 4000);
    EXPECT_EQ(holder.receive(), "");
    EXPECT_EQ(server.stop(), 0);
    EXPECT_THAT(installation.log(),
                testing::HasSubstr("Connection 1 gives way to a client that waits, after a silence of "));
}

}  // namespace
}  // namespace systemtest
