#pragma once

#include <string>

#include "server/EmptyXmlHookImpl.h"
#include "server/StatusCode.h"
#include "server/XmlClassifier.h"
#include "server/XmlErrorResponseImpl.h"
#include "server/XmlResponseImpl.h"
#include "support/ClassifierTable.h"
#include "support/Xml.h"

namespace support {

// All of the server that stands behind a connection, with its disk in memory.
class ServerInMemory : public ClassifierTable {
public:
    // Requests above it are refused, as a connection refuses them.
    std::size_t maxInput = 20'000'000;

    std::string answer(const std::string& request) {
        static const LoadedSchema requests(MORVANE_SCHEMAS "/server/RequestSchema.xsd");
        static const LoadedSchema responses(MORVANE_SCHEMAS "/server/ResponseSchema.xsd");
        if (request.size() > maxInput) {
            return refusal(halvern::morvane::statusCode::REQUEST_TOO_LARGE, "Too large.");
        }
        const halvern::morvane::XmlResponseFactoryImpl results(responses.targetNamespace());
        const halvern::morvane::XmlErrorResponseFactoryImpl errors(responses.targetNamespace(),
                                                                   responses.version());
        const halvern::morvane::EmptyXmlHookFactoryImpl hooks;
        std::string out;
        return halvern::morvane::XmlClassifierFactoryImpl(table, results, errors, hooks, requests.cache(),
                                                          requests.targetNamespace(), "root", log)
            .create()
            ->handle(out, request);
    }

    static std::string refusal(std::int32_t status, const std::string& message) {
        static const LoadedSchema responses(MORVANE_SCHEMAS "/server/ResponseSchema.xsd");
        std::string out;
        return halvern::morvane::XmlErrorResponseFactoryImpl(responses.targetNamespace(), responses.version())
            .create()
            ->render(out, status, message);
    }

    // The stored bytes of a classifier.
    util::Bytes stored(const std::string& classifier) const {
        return files.load("root/" + classifier + ".dat");
    }
};

}  // namespace support
