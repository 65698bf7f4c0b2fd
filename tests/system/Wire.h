#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "support/LoopbackClient.h"
#include "support/Xml.h"
#include "util/Base64.h"
#include "util/Bytes.h"

// The client's side: requests as a client writes them, one connection for each, and answers as a client reads
// them.
namespace systemtest {

// One connection over the loopback.
struct Connection : support::LoopbackClient {
    using LoopbackClient::LoopbackClient;
    void endSending() { halfClose(); }
    // Everything up to the server's end.
    std::string receive() { return receiveAll(); }
};

inline std::string replyTo(std::uint16_t port, std::string_view request) {
    return Connection(port).ask(request);
}

// What stands between the root's tags of a request. Nothing is escaped: tests say what they mean.
inline std::string request(const std::string& content, const std::string& version = "1.01") {
    return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<morvane "
           "xmlns=\"http://morvane.example/1/server/RequestSchema\""
           " version=\"" +
           version + "\">\n" + content + "</morvane>";
}

inline std::string text(const std::string& id, const std::string& bytes) {
    std::string base64;
    util::Base64EncoderImpl().encode(util::Bytes(bytes.begin(), bytes.end()), base64);
    return "<textBase64 id=\"" + id + "\">" + base64 + "</textBase64>\n";
}

inline std::string texts(const std::string& content) { return "<texts>\n" + content + "</texts>\n"; }

inline std::string readCalls(const std::string& calls) { return "<readCalls>\n" + calls + "</readCalls>\n"; }

inline std::string writeCalls(const std::string& classifier, const std::string& calls) {
    return "<writeCalls classifierName=\"" + classifier + "\">\n" + calls + "</writeCalls>\n";
}

inline std::string information(const std::string& classifier, const std::string& id = "i") {
    return "<getInformation id=\"" + id + "\" classifierName=\"" + classifier + "\"/>\n";
}

struct ClassCounts {
    std::uint64_t uniqueFeatures = 0;
    std::uint64_t totalCount = 0;
    bool operator==(const ClassCounts&) const = default;
};

struct Keyword {
    std::string token;
    std::string className;
    double probability = 0;
};

// The result of one call: whichever part belongs to that call.
struct Result {
    std::string textCoverage;
    std::map<std::string, double> probabilities;
    std::vector<Keyword> keywords;
    std::map<std::string, ClassCounts> classes;

    std::string best() const {
        const auto most = std::max_element(probabilities.begin(), probabilities.end(),
                                           [](const auto& a, const auto& b) { return a.second < b.second; });
        return most == probabilities.end() ? "" : most->first;
    }
};

struct Answer {
    std::string version;
    bool success = false;
    int code = 0;
    std::string message;
    std::map<std::string, Result> results;
};

// Reads an answer the way a strict client does: well-formed, valid, nothing left over.
inline Answer parse(const std::string& response) {
    using windows::com::xml::Element;
    static const support::LoadedSchema schema(MORVANE_SCHEMAS "/server/ResponseSchema.xsd");
    const auto childrenOf = [](const Element& parent) {
        const windows::com::xml::NodeList nodes = parent.selectNodes("*");
        std::vector<Element> children;
        for (std::int32_t i = 0; i < nodes.size(); ++i) {
            children.emplace_back(nodes.getNode(i));
        }
        return children;
    };
    const auto resultOf = [&](const Element& call) {
        Result result;
        for (const Element& block : childrenOf(call)) {
            result.textCoverage =
                block.hasAttribute("textCoverage") ? block.getAttribute("textCoverage") : "";
            for (const Element& entry : childrenOf(block)) {
                const std::string className = entry.getAttribute("className");
                if (entry.getTagName() == "class") {
                    result.probabilities[className] = std::stod(entry.getAttribute("p"));
                } else if (entry.getTagName() == "keyword") {
                    result.keywords.push_back(
                        {entry.getText(), className, std::stod(entry.getAttribute("p"))});
                } else {
                    const std::vector<Element> counts = childrenOf(entry);
                    result.classes[className] = {std::stoull(counts.at(0).getText()),
                                                 std::stoull(counts.at(1).getText())};
                }
            }
        }
        return result;
    };
    try {
        windows::com::xml::Document document = schema.newDocument();
        document.loadXml(response);
        document.validate();
        const Element root = document.getRootElement();
        Answer answer;
        answer.version = root.getAttribute("version");
        for (const Element& section : childrenOf(root)) {
            if (section.getTagName() == "status") {
                answer.success = section.getAttribute("success") == "true";
                answer.code = std::stoi(section.getAttribute("statusCode"));
                answer.message = section.getText();
                continue;
            }
            for (const Element& call : childrenOf(section)) {
                answer.results[call.getAttribute("id")] = resultOf(call);
            }
        }
        return answer;
    } catch (const exceptions::Exception& e) {
        throw std::runtime_error(std::string("No answer: ") + e.what() + response.substr(0, 2000));
    }
}

inline Answer ask(std::uint16_t port, const std::string& wholeRequest) {
    return parse(replyTo(port, wholeRequest));
}

// The classes of one classifier; an unsuccessful answer gives none.
inline std::map<std::string, ClassCounts> classesOf(std::uint16_t port, const std::string& classifier) {
    return ask(port, request(readCalls(information(classifier)))).results["i"].classes;
}

}  // namespace systemtest
