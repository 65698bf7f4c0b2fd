#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>

#include "system/Program.h"
#include "system/Wire.h"

namespace systemtest {
namespace {

using Documents = std::vector<std::pair<std::string, std::string>>;

// One document a line: its label, a tab, its text.
Documents documentsOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    Documents documents;
    for (std::string label, bytes; std::getline(in, label, '\t') && std::getline(in, bytes);) {
        documents.emplace_back(label, bytes);
    }
    return documents;
}

// One request with a call for each document, whose attributes come from its label.
template <class Attributes>
Answer askAll(std::uint16_t port, const Documents& documents, const std::string& classifier, bool writes,
              const Attributes& attributesFor) {
    std::string all;
    std::string calls;
    for (std::size_t i = 0; i < documents.size(); ++i) {
        const std::string id = std::to_string(i);
        all += text(id, documents[i].second);
        calls += "<" + attributesFor(documents[i].first) + " id=\"" + id + "\" textId=\"" + id + "\"/>\n";
    }
    const Answer answer =
        ask(port, request(texts(all) + (writes ? writeCalls(classifier, calls) : readCalls(calls))));
    EXPECT_TRUE(answer.success) << answer.message;
    return answer;
}

TEST(DataTest, LearnsFromRealTexts) {
    const char* folder = std::getenv("MORVANE_DATA");
    if (folder == nullptr) {
        GTEST_SKIP() << "MORVANE_DATA names no folder with data sets";
    }
    const Installation installation;
    Server server(installation);
    for (const auto& [set, least] : {std::pair<std::string, double>{"sms", 0.98}, {"agmini", 0.89}}) {
        const std::string path = std::string(folder) + "/" + set;
        const Documents held = documentsOf(path + "/test.tsv");
        const Documents learned = documentsOf(path + "/train.tsv");
        ASSERT_FALSE(held.empty()) << path;
        std::map<std::string, std::string> classes{{"", "<create id=\"create\"/>"}};
        std::string creation;
        for (const auto& [label, bytes] : learned) {
            classes[label] = "<addClass id=\"" + label + "\" className=\"" + label + "\"/>";
        }
        for (const auto& [label, call] : classes) {
            creation += call;
        }
        ASSERT_TRUE(ask(server.port(), request(writeCalls(set, creation))).success);
        askAll(server.port(), learned, set, true,
               [](const std::string& label) { return "train className=\"" + label + "\""; });
        Answer answer = askAll(server.port(), held, set, false,
                               [&](const std::string&) { return "classify classifierName=\"" + set + "\""; });
        double right = 0;
        for (std::size_t i = 0; i < held.size(); ++i) {
            right += answer.results[std::to_string(i)].best() == held[i].first ? 1 : 0;
        }
        EXPECT_GE(right / static_cast<double>(held.size()), least) << set;
        std::cout << set << ": " << right << " of " << held.size() << " held-back texts\n";
    }
    EXPECT_EQ(server.stop(), 0);
}

}  // namespace
}  // namespace systemtest
