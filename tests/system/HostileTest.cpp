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

    const std::string names[] = {"../secret",
                                 "..",
                                 ".",
                                 "../../x",
                                 "a/../../secret",
                                 "/etc/passwd",
                                 "a/b",
                                 "..\\secret",
                                 "a\\b",
                                 ".hidden",
                                 "c:secret",
                                 "a*",
                                 "a?",
                                 "a|b",
                                 "&lt;a&gt;",
                                 "&quot;",
                                 "",
                                 std::string(129, 'a'),
                                 "a&#9;b",
                                 "a&#10;b",
                                 "a&#x7F;",
                                 "&#x2E;&#x2E;&#x2F;secret",
                                 "\xE2\x80\xA6/..",
                                 installation.file("secret")};
    for (const std::string& name : names) {
        for (const char* call :
             {"<create id=\"1\"/>", "<remove id=\"1\"/>", "<addClass id=\"1\" className=\"c\"/>"}) {
            const Answer answer = ask(server.port(), request(writeCalls(name, call)));
            EXPECT_EQ(answer.code, 4000) << name << call;
        }
        const Answer answer = ask(server.port(), request(readCalls(information(name))));
        EXPECT_EQ(answer.code, 4000) << name;
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
    struct Row {
        const char* what;
        std::string request;
    };
    const Row rows[] = {
        {"nothing", ""},
        {"one zero", std::string(1, '\0')},
        {"noise", random},
        {"a declaration alone", "<?xml version=\"1.0\"?>"},
        {"cut in the middle", sound.substr(0, sound.size() / 2)},
        {"cut by one byte", sound.substr(0, sound.size() - 1)},
        {"a zero byte in the middle", std::string(sound).replace(sound.find("<readCalls"), 1, 1, '\0')},
        {"something behind the root", sound + "<more/>"},
        {"UTF-16", std::string("\xFF\xFE<\0m\0o\0r\0v\0a\0n\0e\0/\0>\0", 22)},
        {"an empty document type", "<!DOCTYPE morvane>" + sound.substr(sound.find("<morvane"))},
        {"entities that grow without end", bomb + afterDeclaration},
        {"an entity that reads a file", "<!DOCTYPE morvane [<!ENTITY e SYSTEM \"file://" +
                                            installation.file("marker.txt") + "\">]>" + afterDeclaration},
        {"an entity that nobody declared", body},
        {"deep nesting", request(repeated("<texts>", 100'000))},
        {"deep nesting, closed", request(repeated("<a>", 200) + repeated("</a>", 200))},
        {"very many attributes", request("<texts" + attributes + "/>")},
        {"no namespace", "<morvane version=\"1.01\">" + read + "</morvane>"},
        {"another namespace",
         "<morvane xmlns=\"http://example.org/\" version=\"1.01\">" + read + "</morvane>"},
        {"an unknown version", request(texts(text("t", "word")) + read, "2.00")},
        {"no calls", request(texts(text("t", "word")))},
        {"an empty sequence", request(readCalls(""))},
        {"two sequences of one kind",
         request(readCalls(information("c")) + readCalls(information("c", "j")))},
        {"a call in the wrong sequence", request(readCalls("<create id=\"1\"/>"))},
        {"an unknown call", request(writeCalls("c", "<destroy id=\"1\"/>"))},
        {"two calls of one id", request(readCalls(information("c") + information("c")))},
        {"two calls of one id in both sequences",
         request(readCalls(information("c", "1")) + writeCalls("c", "<remove id=\"1\"/>"))},
        {"two texts of one id", request(texts(text("t", "a") + text("t", "b")) + read)},
        {"a text that isn't there", request(texts(text("u", "a")) + read)},
        {"a missing attribute", request(readCalls("<getInformation id=\"1\"/>"))},
        {"an attribute too many",
         request(readCalls("<getInformation id=\"1\" classifierName=\"c\" x=\"1\"/>"))},
        {"an expression for an id",
         request(
             texts(text("t", "a")) +
             readCalls(
                 "<classify id=\"1\" classifierName=\"c\" textId=\"x&quot; or &quot;1&quot;=&quot;1\"/>"))},
        {"a control character in an id", request(readCalls(information("c", "a&#1;")))},
        {"a class name that is too long",
         request(writeCalls("c", "<addClass id=\"1\" className=\"" + std::string(257, 'x') + "\"/>"))},
        {"a character without a byte",
         request(writeCalls("c", "<addClass id=\"1\" className=\"&#x20AC;\"/>"))},
        {"a stylesheet and an inclusion",
         "<?xml-stylesheet href=\"file:///etc/passwd\"?><x:include "
         "xmlns:x=\"http://www.w3.org/2001/XInclude\" "
         "href=\"" +
             installation.file("marker.txt") + "\"/>"},
    };
    for (const Row& row : rows) {
        const std::string response = replyTo(server.port(), row.request);
        const Answer answer = parse(response);
        EXPECT_EQ(answer.code, 4000) << row.what << ": " << answer.message.substr(0, 500);
        EXPECT_FALSE(answer.message.empty()) << row.what;
        EXPECT_EQ(response.find("the-marker"), std::string::npos) << row.what;
        EXPECT_EQ(namesBelow(installation.outside()), before) << row.what;
    }
    // What looks odd and is in order all the same.
    EXPECT_TRUE(ask(server.port(), "\xEF\xBB\xBF" + sound).success);
    EXPECT_TRUE(ask(server.port(), sound + std::string("\0<garbage", 9)).success);
    EXPECT_TRUE(
        ask(server.port(),
            request("<!-- <!DOCTYPE --><texts><text id=\"t\"><![CDATA[<!DOCTYPE]]></text></texts>" + read))
            .success);
    EXPECT_EQ(server.stop(), 0);
}

TEST(HostileTest, AFileThatIsDamagedCostsOnlyItself) {
    const Installation installation;
    std::string sound;
    {
        Server server(installation);
        const std::string calls =
            "<create id=\"1\"/><addClass id=\"2\" className=\"x\"/><train id=\"3\" className=\"x\" "
            "textId=\"t\"/>";
        for (const char* name : {"good", "bad"}) {
            ASSERT_TRUE(
                ask(server.port(), request(texts(text("t", "some words to learn")) + writeCalls(name, calls)))
                    .success);
        }
        EXPECT_EQ(server.stop(), 0);
        sound = support::readFile(installation.classifier("bad"));
    }
    std::string wrongVersion = sound;
    wrongVersion[0] = 6;
    std::string wrongExtractor = sound;
    wrongExtractor[4] = 8;
    std::string hugeLane = sound;
    hugeLane.replace(hugeLane.size() - 4, 4, "\xFF\xFF\xFF\xFF");
    struct Row {
        std::string bytes;
        std::string words;
    };
    const Row rows[] = {
        {"", "Trying to load classifier with empty training data."},
        {sound.substr(0, sound.size() / 2),
         "The data that the Classifier is being set with seems to be corrupt. "},
        {sound.substr(0, sound.size() - 1),
         "The data that the Classifier is being set with seems to be corrupt. "},
        {hugeLane, "The data that the Classifier is being set with seems to be corrupt. "},
        {wrongVersion, "Trying to set the training data with a version that is not valid (6). Aborting."},
        {wrongExtractor, "Unrecognized data version for feature extractor 8"},
    };
    Server server(installation);
    const auto good = classesOf(server.port(), "good");
    EXPECT_EQ(good.size(), 1u);
    for (const Row& row : rows) {
        support::writeFile(installation.classifier("bad"), row.bytes);
        const std::string read = request(readCalls(information("bad")));
        const std::string train = request(
            texts(text("t", "word")) + writeCalls("bad", "<train id=\"1\" className=\"x\" textId=\"t\"/>"));
        const std::string create = request(writeCalls("bad", "<create id=\"1\"/>"));
        for (const std::string& damaged : {read, train}) {
            const Answer answer = ask(server.port(), damaged);
            EXPECT_EQ(answer.code, 4000);
            EXPECT_NE(answer.message.find(row.words), std::string::npos) << answer.message;
        }
        EXPECT_NE(ask(server.port(), create).message.find("already exists (on disk)"), std::string::npos);
        // The evidence stays for whoever comes to look.
        EXPECT_EQ(support::readFile(installation.classifier("bad")), row.bytes);
        EXPECT_EQ(classesOf(server.port(), "good"), good);
    }
    EXPECT_TRUE(ask(server.port(), request(writeCalls("bad", "<remove id=\"1\"/>"))).success);
    EXPECT_TRUE(ask(server.port(), request(writeCalls("bad", "<create id=\"1\"/>"))).success);
    EXPECT_EQ(server.stop(), 0);
}

}  // namespace
}  // namespace systemtest
