#include "server/RequestTexts.h"

#include <cstdint>

#include "server/ElementNames.h"
#include "server/InternalCallException.h"
#include "util/Base64.h"
#include "util/FixedStream.h"
#include "windows/com/xml/NodeList.h"

using windows::com::xml::Element;
using windows::com::xml::NodeList;

namespace halvern::morvane {

namespace {

std::string textsNamed(const char* element) { return std::string(elementNames::MV_TEXTS) + "/" + element; }

}  // namespace

RequestTexts::RequestTexts(const Element& root) : _root(root) {}

util::Bytes RequestTexts::get(const Element& call) {
    const Text text = find(call.getAttribute(elementNames::TEXT_ID));
    if (!text.encoded) {
        const std::string plain = text.element.getText();
        return util::Bytes(plain.begin(), plain.end());
    }
    const std::string tagName = text.element.getTagName();
    if (tagName != elementNames::TEXT_BASE64) {
        util::FixedStream<1024> message;
        message << "Unrecognized text element name " << tagName.c_str() << ". " << elementNames::TEXT_BASE64
                << " was expected.";
        throw InternalCallException(message.str());
    }
    util::Bytes bytes;
    util::Base64DecoderImpl().decode(text.element.getText(), bytes);
    return bytes;
}

void RequestTexts::makeIndex() {
    addToIndex(textsNamed(elementNames::MV_TEXT), false);
    addToIndex(textsNamed(elementNames::MV_TEXT_BASE64), true);
    _indexed = true;
}

void RequestTexts::addToIndex(const std::string& elements, bool encoded) {
    const NodeList nodes = _root.selectNodes(elements);
    const std::int32_t count = nodes.size();
    for (std::int32_t i = 0; i < count; ++i) {
        const Element element(nodes.getNode(i));
        _texts.emplace(element.getAttribute(elementNames::ID), Text{element, encoded});
    }
}

RequestTexts::Text RequestTexts::find(const std::string& id) {
    if (!_indexed) {
        makeIndex();
    }
    const auto text = _texts.find(id);
    if (text != _texts.end()) {
        return text->second;
    }
    // An unknown id fails in the words for the first of no nodes.
    const NodeList none = _root.selectNodes(textsNamed(elementNames::MV_TEXT_BASE64) + "[false()]");
    return Text{Element(none.getNode(0)), true};
}

}  // namespace halvern::morvane
