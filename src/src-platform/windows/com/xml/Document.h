#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "windows/com/xml/Element.h"
#include "windows/com/xml/ExceptionThrower.h"
#include "windows/com/xml/NodeList.h"
#include "windows/com/xml/SchemaCache.h"
#include "windows/com/xml/SourceLines.h"

namespace windows::com::xml {

// An XML document, read whole.
//
// Every byte of the source is one character, that of ISO-8859-1, whatever its XML declaration says; so bytes
// come out as they went in. A UTF-8 byte order mark at the very start is skipped. Nothing that a document
// says makes the process open a file or a connection: a DOCTYPE is refused, and so are documents made to be
// slow, with more than 64 attributes in one tag or more than 32 levels of elements.
//
// Every operation throws DocumentException if it fails, where nothing else is said, and std::bad_alloc if
// memory runs out. A failed load leaves an empty document, ready for the next load. Copies share their
// content.
class Document final : public ExceptionThrower {
public:
    Document() = default;

    // validate() goes by these schemas, also by those added later.
    explicit Document(const SchemaCache& schemas);

    // Whether a schema in here may include files; off at first.
    void setResolveExternals(bool resolve);

    void load(const std::string& path);

    // text ends at its first zero byte.
    void loadXml(std::string_view text);

    // The document as text without the encoding of its declaration.
    void saveXml(std::string& out) const;

    // Throws ValidateException if the document breaks its schema, or if there is no schema for it.
    void validate() const;

    // The prefixes of later selections, in the form "xmlns:a='uri' xmlns:b='uri'". Stays over loads.
    void setSelectionNamespaces(const std::string& text);

    // The nodes that the XPath expression selects from the document.
    NodeList selectNodes(const std::string& expression) const;

    // The one element that the XPath expression selects.
    Element getElement(const std::string& expression) const;
    Element getRootElement() const;

    // The attribute "targetNamespace" of the root element, which is that of a schema. Throws ElementException
    // if it is missing.
    std::string getTargetNamespace() const;

private:
    friend class SchemaCache;

    void read(std::string_view source, const std::string& path, const std::string& failureText);
    [[noreturn]] void raise(const std::string& text) const override;

    std::optional<SchemaCache> _schemas;
    bool _resolveExternals = false;
    std::vector<std::pair<std::string, std::string>> _namespaces;  // prefix and URI, in UTF-8
    std::shared_ptr<Tree> _tree;                                   // null while empty
    SourceLines _lines;                                            // of the source, for messages
    std::uint64_t _fingerprint = 0;                                // of the file, 0 if there is none
};

}  // namespace windows::com::xml
