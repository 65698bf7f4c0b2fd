#include "windows/com/xml/SchemaCache.h"

#include <libxml/xmlschemas.h>

#include <map>
#include <new>
#include <utility>

#include "windows/com/xml/Characters.h"
#include "windows/com/xml/Document.h"
#include "windows/com/xml/LibraryHooks.h"
#include "windows/com/xml/ParseError.h"
#include "windows/com/xml/Tree.h"
#include "windows/com/xml/XMLException.h"

namespace windows::com::xml {

namespace {

struct FreeSchema {
    void operator()(xmlSchema* schema) const { xmlSchemaFree(schema); }
};

struct FreeSchemaParser {
    void operator()(xmlSchemaParserCtxt* context) const { xmlSchemaFreeParserCtxt(context); }
};

struct CompiledSchema {
    OwnedDocument source;  // the schema points into it
    std::unique_ptr<xmlSchema, FreeSchema> schema;
    std::uint64_t fingerprint = 0;
};

void keepError(void* error, xmlErrorPtr reported) { static_cast<ParseError*>(error)->keepFirst(*reported); }

// Compiling takes blanks and comments out of a document, so it gets a copy.
OwnedDocument copyOf(xmlDoc* document) {
    const hooks::MemoryWatch watch;
    OwnedDocument copy(xmlCopyDoc(document, 1));
    if (copy != nullptr && copy->URL == nullptr && document->URL != nullptr) {
        copy->URL = xmlStrdup(document->URL);  // what included files are relative to
    }
    watch.check();
    return copy;
}

CompiledSchema compile(OwnedDocument source, ParseError& error) {
    const hooks::MemoryWatch watch;
    CompiledSchema compiled{std::move(source), nullptr, 0};
    const std::unique_ptr<xmlSchemaParserCtxt, FreeSchemaParser> context(
        xmlSchemaNewDocParserCtxt(compiled.source.get()));
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    xmlSchemaSetParserStructuredErrors(context.get(), &keepError, &error);
    compiled.schema.reset(xmlSchemaParse(context.get()));
    watch.check();
    return compiled;
}

}  // namespace

class SchemaCache::Schemas {
public:
    std::map<std::string, CompiledSchema> byNamespace;  // in UTF-8
};

SchemaCache::SchemaCache() : _schemas(std::make_shared<Schemas>()) {}

void SchemaCache::add(const Document& document, const std::string& targetNamespace) {
    const std::string failure = "Error adding schema. ";
    throwIfFailed(document._tree == nullptr ? 1 : 0, failure + "The document of the schema is empty.");
    const hooks::ScopedExternals externals(document._resolveExternals);
    ParseError error;
    CompiledSchema compiled = compile(copyOf(document._tree->document()), error);
    throwIfFailed(compiled.schema == nullptr ? 1 : 0, failure + error.text(document._lines));
    throwIfFailed(document.getTargetNamespace() == targetNamespace ? 0 : 1,
                  failure + "Its target namespace is not '" + targetNamespace + "'.");
    compiled.fingerprint = document._fingerprint;
    _schemas->byNamespace.insert_or_assign(widen(targetNamespace), std::move(compiled));
}

std::uint64_t SchemaCache::fingerprint(const std::string& targetNamespace) const {
    const auto found = _schemas->byNamespace.find(widen(targetNamespace));
    return found == _schemas->byNamespace.end() ? 0 : found->second.fingerprint;
}

_xmlSchema* SchemaCache::find(const std::string& targetNamespace) const {
    const auto found = _schemas->byNamespace.find(targetNamespace);
    return found == _schemas->byNamespace.end() ? nullptr : found->second.schema.get();
}

void SchemaCache::raise(const std::string& text) const { throw SchemaCacheException(text); }

}  // namespace windows::com::xml
