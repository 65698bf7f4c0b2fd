#include "server/systemtest/ResponseValidator.h"

#include <limits>

#include "server/ElementNames.h"
#include "server/StatusCode.h"
#include "util/Numbers.h"
#include "windows/com/xml/Element.h"
#include "windows/com/xml/NodeList.h"

namespace halvern::morvane {

namespace {

using classifier::Classification;
using classifier::ClassInformation;
using windows::com::xml::Document;
using windows::com::xml::Element;
using windows::com::xml::NodeList;

// Numbers beyond 64 bits are read as the greatest that there is, so that one can't be told from them.
constexpr std::int64_t GREATEST_COUNT = std::numeric_limits<std::int64_t>::max() - 1;

std::uint64_t countOf(const Element& element, std::int64_t maximum) {
    return static_cast<std::uint64_t>(util::toInteger(element.getText(), 0, maximum));
}

template <class Use>
void forEach(const NodeList& nodes, Use use) {
    for (std::int32_t i = 0; i < nodes.size(); ++i) {
        use(Element(nodes.getNode(i)));
    }
}

ParsedResult classificationOf(const Element& call) {
    const Element block = call.getElement(elementNames::MV_CLASSIFICATION);
    Classification classification;
    if (block.hasAttribute(elementNames::TEXT_COVERAGE)) {
        classification.setTextCoverage(util::toDouble(block.getAttribute(elementNames::TEXT_COVERAGE)));
    }
    forEach(block.selectNodes(elementNames::MV_CLASS), [&](const Element& entry) {
        classification.setProbability(entry.getAttribute(elementNames::CLASS_NAME),
                                      util::toDouble(entry.getAttribute(elementNames::PROBABILITY)));
    });
    return classification;
}

ParsedResult keywordsOf(const Element& call) {
    std::vector<ParsedKeyword> keywords;
    forEach(call.getElement(elementNames::MV_KEYWORDS).selectNodes("*"), [&](const Element& entry) {
        keywords.push_back({entry.getText(), entry.getAttribute(elementNames::CLASS_NAME),
                            util::toDouble(entry.getAttribute(elementNames::PROBABILITY))});
    });
    return keywords;
}

ParsedResult informationOf(const Element& call) {
    std::vector<ClassInformation> classes;
    const Element block = call.getElement(elementNames::MV_CLASSES);
    forEach(block.selectNodes(elementNames::MV_CLASS_INFORMATION), [&](const Element& entry) {
        classes.push_back({entry.getAttribute(elementNames::CLASS_NAME),
                           countOf(entry.getElement(elementNames::MV_UNIQUE_FEATURES), GREATEST_COUNT),
                           static_cast<std::uint32_t>(countOf(entry.getElement(elementNames::MV_TOTAL_COUNT),
                                                              std::numeric_limits<std::uint32_t>::max()))});
    });
    return classes;
}

}  // namespace

ResponseValidator::ResponseValidator(const std::string& schemaFolder) {
    _schema.setResolveExternals(true);
    _schema.load(schemaFolder + "ResponseSchema.xsd");
    _schemas.add(_schema, _schema.getTargetNamespace());
}

ParsedResponse ResponseValidator::parse(const std::string& response) const {
    Document document(_schemas);
    document.loadXml(response);
    document.validate();
    document.setSelectionNamespaces("xmlns:mv='" + _schema.getTargetNamespace() + "'");

    ParsedResponse parsed;
    const Element root = document.getElement(elementNames::MV_MORVANE);
    parsed.version = root.getAttribute(elementNames::VERSION);
    const Element status = root.getElement(elementNames::MV_STATUS);
    parsed.success = status.getBoolean(elementNames::SUCCESS);
    parsed.code = statusCode::OK;
    if (!parsed.success) {
        parsed.errorMessage = status.getText();
        parsed.code = static_cast<std::int32_t>(util::toInteger(
            status.getAttribute(elementNames::STATUS_CODE), std::numeric_limits<std::int32_t>::min(),
            std::numeric_limits<std::int32_t>::max()));
    }
    const NodeList readCalls = root.selectNodes(elementNames::MV_READ_CALLS);
    if (readCalls.size() == 0) {
        return parsed;
    }
    forEach(Element(readCalls.getNode(0)).selectNodes("*"), [&](const Element& call) {
        const std::string method = call.getTagName();
        const std::string id = call.getAttribute(elementNames::ID);
        if (method == elementNames::CLASSIFY) {
            parsed.responses[id] = classificationOf(call);
        } else if (method == elementNames::CLASSIFY_KEYWORDS) {
            parsed.responses[id] = keywordsOf(call);
        } else if (method == elementNames::GET_INFORMATION) {
            parsed.responses[id] = informationOf(call);
        }
    });
    return parsed;
}

std::string ResponseValidator::schemaVersion() const {
    return _schema.getRootElement().getAttribute(elementNames::VERSION);
}

}  // namespace halvern::morvane
