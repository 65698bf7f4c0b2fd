#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "windows/com/xml/LibraryTypes.h"

namespace windows::com::xml {

class ParseError;

using Namespaces = std::vector<std::pair<std::string, std::string>>;  // prefix and URI, in UTF-8

struct FreeDocument {
    void operator()(_xmlDoc* document) const;
};
using OwnedDocument = std::unique_ptr<_xmlDoc, FreeDocument>;

// Reads source, every byte of which is one character. path tells where included files are found; it may be
// empty. Returns null and fills error if the document is refused or not well-formed.
OwnedDocument parse(std::string_view source, const std::string& path, ParseError& error);

// The line of the source where the start tag of this node, or of the element around it, ends. The node is one
// of a document that parse() has made.
std::uint64_t lineOf(const _xmlNode* node);

// The content of a document with what is needed to select from it, shared by all wrappers of its nodes.
class Tree {
public:
    explicit Tree(OwnedDocument document);
    ~Tree();

    _xmlDoc* document() const { return _document.get(); }

    void setNamespaces(const Namespaces& namespaces);

    // The nodes that an XPath expression selects from a node, in document order; null if the expression is
    // faulty or its value isn't a set of nodes.
    std::shared_ptr<_xmlXPathObject> select(_xmlNode* from, const std::string& expression);

private:
    struct FreeContext {
        void operator()(_xmlXPathContext* context) const;
    };

    void prepareContext();

    OwnedDocument _document;
    Namespaces _namespaces;
    std::unique_ptr<_xmlXPathContext, FreeContext> _context;  // made by the first selection
};

}  // namespace windows::com::xml
