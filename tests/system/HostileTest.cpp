#include <gtest/gtest.h>

#include <set>

#include "system/Program.h"
#include "system/Wire.h"

namespace systemtest {
namespace {

// All names below a folder, but for what the server may write.
std::set<std::string> namesBelow(const std::string& folder) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        const std::string name = entry.path().string();
        if (name.find("/app/logs") == std::string::npos &&
            name.find("/app/output.txt") == std::string::npos) {
            names.insert(name);
        }
    }
    return names;
}

TEST(HostileTest, NamesLeadNowhereOutsideTheRoot) {
    const Installation installation;
    Server server(installation);
    // A sound classifier right outside: nobody may read, overwrite or remove it by name.
    ASSERT_TRUE(ask(server.port(), request(writeCalls("sound", "<create id=\"1\"/>"))).success);
    std::filesystem::rename(installation.classifier("sound"), installation.file("secret.dat"));
    ASSERT_TRUE(ask(server.port(), request(writeCalls("sound", "<remove id=\"1\"/>"))).success);
    const auto before = namesBelow(installation.outside());

    for (const std::string& name :
         {std::string("../secret"), std::string("a/../../secret"), std::string("..\\secret"),
          std::string("&#x2E;&#x2E;&#x2F;secret"), std::string(".hidden"), std::string(),
          std::string("a&#10;b"), installation.file("secret")}) {
        for (const std::string& calls :
             {writeCalls(name, "<create id=\"1\"/>"), writeCalls(name, "<remove id=\"1\"/>"),
              writeCalls(name, "<addClass id=\"1\" className=\"c\"/>"), readCalls(information(name))}) {
            EXPECT_EQ(ask(server.port(), request(calls)).code, 4000) << calls;
        }
        EXPECT_EQ(namesBelow(installation.outside()), before) << name;
    }
    // Not a wall but a door: the longest name, and one with dots and signs inside.
    for (const std::string& name :
         {std::string(128, 'a'), std::string("a..b - (1), [2] 'c' 100% #~$;=@^_`{}!")}) {
        EXPECT_TRUE(ask(server.port(), request(writeCalls(name, "<create id=\"1\"/>"))).success) << name;
        EXPECT_TRUE(ask(server.port(), request(writeCalls(name, "<remove id=\"1\"/>"))).success) << name;
    }
    EXPECT_EQ(server.stop(), 0);
}

TEST(HostileTest, RequestsThatAreNotRequestsAreRefused) {
    const Installation installation;
    support::writeFile(installation.file("marker.txt"), "the-marker-that-nobody-may-read");
    Server server(installation);
    ASSERT_TRUE(
        ask(server.port(), request(writeCalls("c", "<create id=\"1\"/><addClass id=\"2\" className=\"x\"/>")))
            .success);
    const auto before = namesBelow(installation.outside());

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
    const std::string marker = installation.file("marker.txt");
    struct Row {
        const char* what;
        std::string request;
    };
    const Row rows[] = {
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
    for (const Row& row : rows) {
        const std::string response = replyTo(server.port(), row.request);
        const Answer answer = parse(response);
        EXPECT_EQ(answer.code, 4000) << row.what << ": " << answer.message.substr(0, 500);
        EXPECT_FALSE(answer.message.empty()) << row.what;
        EXPECT_EQ(response.find("the-marker"), std::string::npos) << row.what;
        EXPECT_EQ(namesBelow(installation.outside()), before) << row.what;
    }
    EXPECT_EQ(server.stop(), 0);
}

TEST(HostileTest, AClientThatOnlyHoldsAPlaceGivesWay) {
    const Installation installation;
    Settings settings;
    settings.maxClients = "1";
    Server server(installation, settings);
    Connection holder(server.port());
    holder.send("<");
    EXPECT_EQ(ask(server.port(), "no request").code, 4000);
    EXPECT_EQ(holder.receive(), "");
    EXPECT_EQ(server.stop(), 0);
    EXPECT_NE(installation.log().find("Connection 1 gives way to a client that waits, after a silence of "),
              std::string::npos);
}

}  // namespace
}  // namespace systemtest
