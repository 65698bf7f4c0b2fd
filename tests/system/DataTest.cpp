#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <set>

#include "system/Program.h"
#include "system/Wire.h"

namespace systemtest {
namespace {

struct Document {
    std::string label;
    std::string text;
};

// One document a line: its label, a tab, its text.
std::vector<Document> documentsOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<Document> documents;
    for (std::string line; std::getline(in, line);) {
        const std::size_t tab = line.find('\t');
        documents.push_back({line.substr(0, tab), line.substr(tab + 1)});
    }
    return documents;
}

void train(std::uint16_t port, const std::string& classifier, const std::vector<Document>& documents) {
    std::string classes = "<create id=\"create\"/>";
    std::set<std::string> names;
    for (const Document& document : documents) {
        if (names.insert(document.label).second) {
            classes += "<addClass id=\"" + document.label + "\" className=\"" + document.label + "\"/>";
        }
    }
    ASSERT_TRUE(ask(port, request(writeCalls(classifier, classes))).success);
    constexpr std::size_t BATCH = 500;
    for (std::size_t first = 0; first < documents.size(); first += BATCH) {
        std::string all;
        std::string calls;
        for (std::size_t i = first; i < std::min(first + BATCH, documents.size()); ++i) {
            const std::string id = std::to_string(i);
            all += text(id, documents[i].text);
            calls +=
                "<train id=\"" + id + "\" className=\"" + documents[i].label + "\" textId=\"" + id + "\"/>\n";
        }
        const Answer answer = ask(port, request(texts(all) + writeCalls(classifier, calls)));
        ASSERT_TRUE(answer.success) << answer.message;
    }
}

double accuracy(std::uint16_t port, const std::string& classifier, const std::vector<Document>& documents) {
    std::string all;
    std::string calls;
    for (std::size_t i = 0; i < documents.size(); ++i) {
        const std::string id = std::to_string(i);
        all += text(id, documents[i].text);
        calls +=
            "<classify id=\"" + id + "\" classifierName=\"" + classifier + "\" textId=\"" + id + "\"/>\n";
    }
    Answer answer = ask(port, request(texts(all) + readCalls(calls)));
    EXPECT_TRUE(answer.success) << answer.message;
    std::size_t right = 0;
    for (std::size_t i = 0; i < documents.size(); ++i) {
        right += answer.results[std::to_string(i)].best() == documents[i].label ? 1 : 0;
    }
    return static_cast<double>(right) / static_cast<double>(documents.size());
}

TEST(DataTest, LearnsFromRealTexts) {
    const char* folder = std::getenv("MORVANE_DATA");
    if (folder == nullptr) {
        GTEST_SKIP() << "MORVANE_DATA names no folder with data sets";
    }
    struct Row {
        std::string set;
        double least;
    };
    const Row rows[] = {{"sms", 0.98}, {"agmini", 0.89}};
    const Installation installation;
    Server server(installation);
    for (const Row& row : rows) {
        const std::string path = std::string(folder) + "/" + row.set;
        const std::vector<Document> held = documentsOf(path + "/test.tsv");
        ASSERT_FALSE(held.empty()) << path;
        ASSERT_NO_FATAL_FAILURE(train(server.port(), row.set, documentsOf(path + "/train.tsv")));
        const double reached = accuracy(server.port(), row.set, held);
        RecordProperty(row.set, std::to_string(reached));
        EXPECT_GE(reached, row.least) << row.set;
        std::cout << row.set << ": " << reached << " of " << held.size() << " held-back texts\n";
    }
    EXPECT_EQ(server.stop(), 0);
}

}  // namespace
}  // namespace systemtest
