#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "server/Request.h"
#include "server/RequestTexts.h"
#include "windows/com/xml/Document.h"
#include "windows/com/xml/Element.h"

namespace halvern::morvane {

// Any request at all, read as a document and validated by the schema.
class DocumentRequest final : public Request {
public:
    // Throws the XMLException family for bytes that are not well-formed or not valid, and
    // exceptions::Exception for a version that is no number.
    DocumentRequest(const std::string& bytes, const windows::com::xml::SchemaCache& schemaCache,
                    const std::string& requestNamespace);

    ResponseVersion getVersion() const override { return _version; }
    const RequestSequence* getReadCalls() const override { return _readCalls ? &*_readCalls : nullptr; }
    const RequestSequence* getWriteCalls() const override { return _writeCalls ? &*_writeCalls : nullptr; }

private:
    class Element final : public RequestElement {
    public:
        Element(windows::com::xml::Element element, RequestTexts& texts)
            // NOLINTNEXTLINE(bugprone-throw-keyword-missing): its base throws exceptions and is none
            : _element(std::move(element)), _texts(&texts) {}

        std::string getAttribute(std::string_view name) const override;
        bool hasAttribute(std::string_view name) const override;
        std::string getTagName() const override { return _element.getTagName(); }
        util::Bytes getText() const override { return _texts->get(_element); }

    private:
        windows::com::xml::Element _element;
        RequestTexts* _texts;
    };

    class Sequence final : public RequestSequence {
    public:
        Sequence(const windows::com::xml::Element& element, RequestTexts& texts)
            // NOLINTNEXTLINE(bugprone-throw-keyword-missing): its base throws exceptions and is none
            : _sequence(element), _texts(&texts), _element(element, texts) {}

        const RequestElement& getElement() const override { return _element; }
        void forEachCall(const std::function<void(const RequestElement& call)>& action) const override;

    private:
        windows::com::xml::Element _sequence;
        RequestTexts* _texts;
        Element _element;
    };

    std::optional<Sequence> sequence(const char* expression);

    const windows::com::xml::Document _document;
    const windows::com::xml::Element _root;
    RequestTexts _texts;
    ResponseVersion _version;
    std::optional<Sequence> _readCalls;
    std::optional<Sequence> _writeCalls;
};

}  // namespace halvern::morvane
