#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>

#include "server/Answer.h"
#include "server/RequestWriter.h"
#include "support/LoopbackClient.h"
#include "support/Xml.h"

// Requests and answers, with one connection for each.
namespace systemtest {

using halvern::morvane::client::Answer;
using halvern::morvane::client::RequestWriter;

// Reads an answer the way a strict client does: well-formed, valid, nothing left over.
inline Answer parse(const std::string& response) {
    static const support::LoadedSchema schema(MORVANE_SCHEMAS "/server/ResponseSchema.xsd");
    const std::string problem = schema.problemOf(response);
    if (!problem.empty()) {
        throw std::runtime_error("No answer: " + problem + response.substr(0, 2000));
    }
    return Answer::parse(response);
}

inline Answer ask(std::uint16_t port, const std::string& request) {
    return parse(support::LoopbackClient(port).ask(request));
}

inline std::string creation(const std::string& classifier) {
    RequestWriter request(classifier);
    request.create();
    request.addClass("x");
    return request.document();
}

inline std::string question(const std::string& classifier) {
    RequestWriter request;
    request.getInformation(classifier);
    return request.document();
}

// Unique features and total count of each class; an unsuccessful answer gives none.
using Classes = std::map<std::string, std::pair<std::uint64_t, std::uint64_t>>;
inline Classes classesOf(std::uint16_t port, const std::string& classifier) {
    const Answer answer = ask(port, question(classifier));
    Classes classes;
    if (answer.isSuccess()) {
        for (const auto& [name, unique, total] : answer.information("1")) {
            classes[name] = {unique, total};
        }
    }
    return classes;
}

}  // namespace systemtest
