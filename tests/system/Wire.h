#pragma once

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlschemas.h>

#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "support/LoopbackClient.h"
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
    std::string call;
    std::string textCoverage;
    std::map<std::string, double> probabilities;
    std::vector<Keyword> keywords;
    std::map<std::string, ClassCounts> classes;

    std::string best() const {
        std::string name;
        double most = -1;
        for (const auto& [className, probability] : probabilities) {
            if (probability > most) {
                most = probability;
                name = className;
            }
        }
        return name;
    }
};

struct Answer {
    std::string version;
    bool success = false;
    int code = 0;
    std::string message;
    std::map<std::string, Result> results;
};

namespace detail {

inline const xmlSchemaPtr& responseSchema() {
    static const xmlSchemaPtr schema = [] {
        xmlSchemaParserCtxtPtr parser = xmlSchemaNewParserCtxt(MORVANE_SCHEMAS "/server/ResponseSchema.xsd");
        xmlSchemaPtr compiled = xmlSchemaParse(parser);
        xmlSchemaFreeParserCtxt(parser);
        if (compiled == nullptr) {
            throw std::runtime_error("The response schema can't be compiled");
        }
        return compiled;
    }();
    return schema;
}

inline std::string nameOf(const xmlNode* node) { return reinterpret_cast<const char*>(node->name); }

inline std::string owned(xmlChar* value) {
    const std::string copy = value == nullptr ? "" : reinterpret_cast<const char*>(value);
    xmlFree(value);
    return copy;
}

inline std::string attribute(xmlNode* node, const char* name) {
    return owned(xmlGetNoNsProp(node, reinterpret_cast<const xmlChar*>(name)));
}

inline std::string content(xmlNode* node) { return owned(xmlNodeGetContent(node)); }

inline Result resultOf(xmlNode* call) {
    Result result;
    result.call = nameOf(call);
    xmlNode* block = xmlFirstElementChild(call);
    if (block != nullptr) {
        result.textCoverage = attribute(block, "textCoverage");
    }
    for (xmlNode* entry = block == nullptr ? nullptr : xmlFirstElementChild(block); entry != nullptr;
         entry = xmlNextElementSibling(entry)) {
        const std::string className = attribute(entry, "className");
        if (nameOf(entry) == "class") {
            result.probabilities[className] = std::stod(attribute(entry, "p"));
        } else if (nameOf(entry) == "keyword") {
            result.keywords.push_back({content(entry), className, std::stod(attribute(entry, "p"))});
        } else {
            xmlNode* unique = xmlFirstElementChild(entry);
            result.classes[className] = {std::stoull(content(unique)),
                                         std::stoull(content(xmlNextElementSibling(unique)))};
        }
    }
    return result;
}

}  // namespace detail

// Reads an answer the way a strict client does: well-formed, valid, nothing left over.
inline Answer parse(const std::string& response) {
    const std::unique_ptr<xmlDoc, void (*)(xmlDoc*)> document(
        xmlReadMemory(response.data(), static_cast<int>(response.size()), nullptr, nullptr,
                      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_HUGE),
        xmlFreeDoc);
    if (document == nullptr) {
        throw std::runtime_error("Not well-formed: " + response.substr(0, 2000));
    }
    xmlSchemaValidCtxtPtr validation = xmlSchemaNewValidCtxt(detail::responseSchema());
    const int invalid = xmlSchemaValidateDoc(validation, document.get());
    xmlSchemaFreeValidCtxt(validation);
    if (invalid != 0) {
        throw std::runtime_error("Not valid: " + response.substr(0, 2000));
    }
    Answer answer;
    xmlNode* root = xmlDocGetRootElement(document.get());
    answer.version = detail::attribute(root, "version");
    for (xmlNode* section = xmlFirstElementChild(root); section != nullptr;
         section = xmlNextElementSibling(section)) {
        if (detail::nameOf(section) == "status") {
            answer.success = detail::attribute(section, "success") == "true";
            answer.code = std::stoi(detail::attribute(section, "statusCode"));
            answer.message = detail::content(section);
            continue;
        }
        for (xmlNode* call = xmlFirstElementChild(section); call != nullptr;
             call = xmlNextElementSibling(call)) {
            answer.results[detail::attribute(call, "id")] = detail::resultOf(call);
        }
    }
    return answer;
}

inline Answer ask(std::uint16_t port, const std::string& wholeRequest) {
    return parse(replyTo(port, wholeRequest));
}

// The classes of one classifier; an unsuccessful answer gives none.
inline std::map<std::string, ClassCounts> classesOf(std::uint16_t port, const std::string& classifier) {
    return ask(port, request(readCalls(information(classifier)))).results["i"].classes;
}

}  // namespace systemtest
