#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "system/Wire.h"
#include "util/Base64.h"
#include "util/Bytes.h"

// Requests piece by piece, also such as no client would write. Nothing is escaped.
namespace systemtest {

inline std::string replyTo(std::uint16_t port, std::string_view request) {
    return support::LoopbackClient(port).ask(request);
}

// What stands between the root's tags of a request.
inline std::string request(const std::string& content) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<morvane "
           "xmlns=\"http://morvane.example/1/server/RequestSchema\" version=\"1.01\">\n" +
           content + "</morvane>";
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

}  // namespace systemtest
