#pragma once

#include <string>

#include "server/ElementNames.h"
#include "server/Request.h"

namespace support {

// All that the calls of a request can ask of it, as one text.
inline std::string contentOf(const halvern::morvane::Request& request) {
    namespace names = halvern::morvane::elementNames;
    using halvern::morvane::RequestElement;
    std::string content = request.getVersion().text;
    const auto add = [&content](const std::string& part) {
        content += std::to_string(part.size()) + ":" + part + " ";
    };
    const auto addElement = [&](const RequestElement& element) {
        add(element.getTagName());
        for (const char* const name :
             {names::ID, names::CLASSIFIER_NAME, names::CLASS_NAME, names::TEXT_ID, names::MAX_SIZE}) {
            add(element.hasAttribute(name) ? "=" + element.getAttribute(name) : "");
        }
    };
    for (const auto* const sequence : {request.getReadCalls(), request.getWriteCalls()}) {
        content += "\n";
        if (sequence == nullptr) {
            continue;
        }
        addElement(sequence->getElement());
        sequence->forEachCall([&](const RequestElement& call) {
            content += "\n ";
            addElement(call);
            if (call.hasAttribute(names::TEXT_ID)) {
                const util::Bytes text = call.getText();
                add(std::string(text.begin(), text.end()));
            }
        });
    }
    return content;
}

}  // namespace support
