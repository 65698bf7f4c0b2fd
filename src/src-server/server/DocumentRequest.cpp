#include "server/DocumentRequest.h"

#include <cstdint>

#include "server/ElementNames.h"
#include "util/Numbers.h"
#include "windows/com/xml/NodeList.h"
#include "windows/com/xml/SchemaCache.h"

using windows::com::xml::Document;
using windows::com::xml::NodeList;

namespace halvern::morvane {

namespace {

Document read(const std::string& bytes, const windows::com::xml::SchemaCache& schemaCache,
              const std::string& requestNamespace) {
    Document document(schemaCache);
    document.setSelectionNamespaces(std::string("xmlns:") + elementNames::SELECTION_PREFIX + "='" +
                                    requestNamespace + "'");
    document.loadXml(bytes);
    document.validate();
    return document;
}

ResponseVersion versionOf(const windows::com::xml::Element& root) {
    const double version = util::toDouble(root.getAttribute(elementNames::VERSION));
    return version == 1.01 ? ResponseVersion{"1.01", 1.01} : ResponseVersion{"1.00", 1.0};
}

}  // namespace

DocumentRequest::DocumentRequest(const std::string& bytes, const windows::com::xml::SchemaCache& schemaCache,
                                 const std::string& requestNamespace)
    : _document(read(bytes, schemaCache, requestNamespace)),
      _root(_document.getElement(elementNames::MV_MORVANE)),
      _texts(_root),
      _version(versionOf(_root)),
      _readCalls(sequence(elementNames::MV_READ_CALLS)),
      _writeCalls(sequence(elementNames::MV_WRITE_CALLS)) {}

std::optional<DocumentRequest::Sequence> DocumentRequest::sequence(const char* expression) {
    const NodeList nodes = _root.selectNodes(expression);
    if (nodes.size() != 1) {
        return std::nullopt;
    }
    return Sequence(windows::com::xml::Element(nodes.getNode(0)), _texts);
}

std::string DocumentRequest::Element::getAttribute(std::string_view name) const {
    return _element.getAttribute(std::string(name));
}

bool DocumentRequest::Element::hasAttribute(std::string_view name) const {
    return _element.hasAttribute(std::string(name));
}

void DocumentRequest::Sequence::forEachCall(
    const std::function<void(const RequestElement& call)>& action) const {
    const NodeList nodes = _sequence.selectNodes("*");
    const std::int32_t count = nodes.size();
    for (std::int32_t i = 0; i < count; ++i) {
        action(Element(windows::com::xml::Element(nodes.getNode(i)), *_texts));
    }
}

}  // namespace halvern::morvane
