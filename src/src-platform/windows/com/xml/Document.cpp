#include "windows/com/xml/Document.h"

#include <libxml/xmlsave.h>
#include <libxml/xmlschemas.h>

#include <cerrno>
#include <cstdio>
#include <new>

#include "util/StringHelper.h"
#include "windows/com/xml/Characters.h"
#include "windows/com/xml/LibraryHooks.h"
#include "windows/com/xml/ParseError.h"
#include "windows/com/xml/Tree.h"
#include "windows/com/xml/XMLException.h"

namespace windows::com::xml {

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

struct FreeBuffer {
    void operator()(xmlBuffer* buffer) const { xmlBufferFree(buffer); }
};

struct FreeValidator {
    void operator()(xmlSchemaValidCtxt* context) const { xmlSchemaFreeValidCtxt(context); }
};

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// Returns 0, or the errno value of what failed.
int readFile(const std::string& path, std::string& content) {
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rbe"));
    if (file == nullptr) {
        return errno;
    }
    char block[65536];
    while (const std::size_t length = std::fread(block, 1, sizeof(block), file.get())) {
        content.append(block, length);
    }
    return std::ferror(file.get()) != 0 ? errno : 0;
}

// FNV-1a, 64 bits.
std::uint64_t hashOf(std::string_view bytes) {
    std::uint64_t hash = 0xCBF29CE484222325U;
    for (const char byte : bytes) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3U;
    }
    return hash;
}

// xmlns:prefix='uri', any number of them with blanks between. Returns false if text has another form.
bool parseNamespaces(std::string_view text, Namespaces& namespaces) {
    constexpr std::string_view start = "xmlns:";
    constexpr std::string_view blanks = " \t\r\n";
    while (true) {
        text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
        if (text.empty()) {
            return true;
        }
        const std::size_t equals = text.find('=');
        if (!text.starts_with(start) || equals == std::string_view::npos || equals + 1 >= text.size()) {
            return false;
        }
        const char quote = text[equals + 1];
        const std::size_t end = text.find(quote, equals + 2);
        if ((quote != '\'' && quote != '"') || end == std::string_view::npos || equals == start.size()) {
            return false;
        }
        namespaces.emplace_back(widen(text.substr(start.size(), equals - start.size())),
                                widen(text.substr(equals + 2, end - equals - 2)));
        text.remove_prefix(end + 1);
    }
}

void keepError(void* error, xmlErrorPtr reported) { static_cast<ParseError*>(error)->keepFirst(*reported); }

// Turns every element without elements in it, but for the root, from one type into another.
void retypeLeaves(xmlDoc* document, xmlElementType from, xmlElementType to) {
    xmlNode* const root = xmlDocGetRootElement(document);
    for (xmlNode* node = root; node != nullptr;) {
        if (node->type == from && node != root && xmlFirstElementChild(node) == nullptr) {
            node->type = to;
        }
        xmlNode* next = node->type == XML_ELEMENT_NODE ? node->children : nullptr;
        for (; next == nullptr && node != root; node = node->parent) {
            next = node->next;
        }
        node = next;
    }
}

// A validation whose memory has run out would walk on through the whole document, with more and more blocks
// missing that the library relies on. It gives up at the first reference to an entity, which this library
// cannot validate and which no document of ours holds.
void stopWalk(void* document) {
    retypeLeaves(static_cast<xmlDoc*>(document), XML_ELEMENT_NODE, XML_ENTITY_REF_NODE);
}

// What a walk that was given up has left in the context is freed only at the end of a next one.
void walkOnce(xmlSchemaValidCtxt* context) {
    xmlDoc document{};
    xmlNode root{};
    document.type = XML_DOCUMENT_NODE;
    document.doc = &document;
    document.children = document.last = &root;
    root.type = XML_ELEMENT_NODE;
    root.name = reinterpret_cast<const xmlChar*>("none");
    root.parent = reinterpret_cast<xmlNode*>(&document);
    root.doc = &document;
    xmlSchemaValidateDoc(context, &document);
}

// Validates against schema, and fills error if the document is not valid.
bool isValid(xmlDoc* document, xmlSchema* schema, ParseError& error) {
    const hooks::MemoryWatch watch;
    const std::unique_ptr<xmlSchemaValidCtxt, FreeValidator> context(xmlSchemaNewValidCtxt(schema));
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    xmlSchemaSetValidStructuredErrors(context.get(), &keepError, &error);
    int result = 0;
    {
        const hooks::ScopedStop stop(&stopWalk, document);
        result = xmlSchemaValidateDoc(context.get(), document);
    }
    if (watch.ranOut()) {
        retypeLeaves(document, XML_ENTITY_REF_NODE, XML_ELEMENT_NODE);
        walkOnce(context.get());
    }
    watch.check();
    return result == 0 && !error.isSet();
}

}  // namespace

Document::Document(const SchemaCache& schemas) : _schemas(schemas) {}

void Document::setResolveExternals(bool resolve) { _resolveExternals = resolve; }

void Document::load(const std::string& path) {
    const std::string failureText = "Error when loading the XML document " + path + "\n\n";
    _tree.reset();
    _lines = {};
    std::string content;
    if (const int systemError = readFile(path, content); systemError != 0) {
        const ParseError error(XML_IO_LOAD_ERROR, 0, 0, "The file could not be read.");
        throwIfFailed(1, failureText + error.text(_lines), static_cast<std::uint32_t>(systemError));
    }
    read(content, path, failureText);
    _fingerprint = hashOf(content);
}

void Document::loadXml(std::string_view text) {
    read(text, "", "Error when loading the XML document from the memory.\n\n");
}

void Document::read(std::string_view source, const std::string& path, const std::string& failureText) {
    _tree.reset();
    _fingerprint = 0;
    source = source.substr(0, source.find('\0'));
    if (source.starts_with(byteOrderMark)) {
        source.remove_prefix(byteOrderMark.size());
    }
    _lines = SourceLines(source);
    ParseError error;
    OwnedDocument document = parse(source, path, error);
    if (document == nullptr) {
        throwIfFailed(1, failureText + error.text(_lines));
    }
    _tree = std::make_shared<Tree>(std::move(document));
    _tree->setNamespaces(_namespaces);
}

void Document::saveXml(std::string& out) const {
    const std::string failure = "Error when saving the xml to memory on an xml document.";
    throwIfFailed(_tree == nullptr ? 1 : 0, failure);
    const hooks::MemoryWatch watch;
    const std::unique_ptr<xmlBuffer, FreeBuffer> buffer(xmlBufferCreate());
    watch.check();
    xmlSaveCtxt* const context = xmlSaveToBuffer(buffer.get(), "UTF-8", XML_SAVE_NO_DECL);
    const bool saved = context != nullptr && xmlSaveDoc(context, _tree->document()) >= 0;
    const bool closed = context != nullptr && xmlSaveClose(context) >= 0;
    watch.check();
    throwIfFailed(saved && closed ? 0 : 1, failure);
    try {
        // The bytes of out have no encoding to be named.
        out = "<?xml version=\"1.0\"?>\n" +
              narrow(std::string_view(reinterpret_cast<const char*>(xmlBufferContent(buffer.get())),
                                      static_cast<std::size_t>(xmlBufferLength(buffer.get()))));
    } catch (const util::StringHelperException& e) {
        throw DocumentException(
            std::string("An exception occured when trying to save an xml document to memory. ") + e.what());
    }
}

void Document::validate() const {
    ParseError error(XML_SCHEMAV_DOCUMENT_ELEMENT_MISSING, 0, 0, "The document has no document element.");
    if (_tree != nullptr) {
        const xmlNode* const root = xmlDocGetRootElement(_tree->document());
        const std::string ns = root->ns == nullptr ? "" : reinterpret_cast<const char*>(root->ns->href);
        xmlSchema* const schema = _schemas ? _schemas->find(ns) : nullptr;
        error = {};
        // Without a schema the library would go by the one that the document names.
        if (schema == nullptr) {
            error = ParseError(XML_SCHEMAV_CVC_ELT_1, lineOf(root), 0,
                               "There is no schema for the namespace of the element '" +
                                   getRootElement().getTagName() + "'.");
        } else if (isValid(_tree->document(), schema, error)) {
            return;
        }
    }
    throw ValidateException(
        withSystemError("Problems validating the xml document.\r\n" + error.text(_lines), 0));
}

void Document::setSelectionNamespaces(const std::string& text) {
    Namespaces namespaces;
    throwIfFailed(parseNamespaces(text, namespaces) ? 0 : 1,
                  "Error when setting property \"SelectionNamespaces\".");
    _namespaces = std::move(namespaces);
    if (_tree != nullptr) {
        _tree->setNamespaces(_namespaces);
    }
}

NodeList Document::selectNodes(const std::string& expression) const {
    auto found =
        _tree == nullptr ? nullptr : _tree->select(reinterpret_cast<xmlNode*>(_tree->document()), expression);
    if (found == nullptr) {
        throwIfFailed(1, "Error when selecting nodes with the expression " + expression + ".");
    }
    return NodeList(_tree, found);
}

Element Document::getElement(const std::string& expression) const {
    const NodeList found = selectNodes(expression);
    if (found.size() != 1) {
        throw DocumentException("Exactly one element matching the string " + expression + " is allowed but " +
                                std::to_string(found.size()) + " was found.\n");
    }
    return Element(found.getNode(0));
}

Element Document::getRootElement() const { return getElement("*"); }

std::string Document::getTargetNamespace() const { return getRootElement().getAttribute("targetNamespace"); }

void Document::raise(const std::string& text) const { throw DocumentException(text); }

}  // namespace windows::com::xml
