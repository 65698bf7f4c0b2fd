#include <libxml/SAX2.h>
#include <libxml/dict.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>

#include "windows/com/xml/LibraryHooks.h"
#include "windows/com/xml/MarkupLimits.h"
#include "windows/com/xml/ParseError.h"
#include "windows/com/xml/Tree.h"

namespace windows::com::xml {

namespace {

// An unfinished token is looked at again from its start with each chunk, so small chunks make a long text
// cost the square of its length.
constexpr std::size_t chunkSize = 1024UL * 1024;

// Of all different names and namespaces together. The library's table of names stops growing at some
// thousands, and from there each new name is compared with ever more others. No schema has a hundredth of it.
constexpr std::size_t maxNameBytes = 256UL * 1024;

struct FreeParser {
    void operator()(xmlParserCtxt* context) const {
        xmlFreeDoc(context->myDoc);
        xmlFreeParserCtxt(context);
    }
};

void keepError(void* context, xmlErrorPtr error) {
    static_cast<ParseError*>(static_cast<xmlParserCtxt*>(context)->_private)->keepFirst(*error);
}

// The pass over the markup has refused every DOCTYPE. If the parser sees one all the same, the two disagree
// on what is markup, and the document is not to be trusted.
void refuseDoctype(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
    auto* const parser = static_cast<xmlParserCtxt*>(context);
    parser->wellFormed = 0;
    xmlStopParser(parser);
}

// The library keeps the line of an element in sixteen bits, and a request may have more lines than that.
void startElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri,
                  int namespaces, const xmlChar** namespacePairs, int attributes, int defaulted,
                  const xmlChar** attributeParts) {
    xmlSAX2StartElementNs(context, name, prefix, uri, namespaces, namespacePairs, attributes, defaulted,
                          attributeParts);
    const auto& parser = *static_cast<xmlParserCtxt*>(context);
    if (parser.node != nullptr) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the library has no other field for its users
        parser.node->_private = reinterpret_cast<void*>(static_cast<std::intptr_t>(parser.input->line));
    }
}

// A parser whose memory has run out would otherwise read on to the end of the chunk.
void stopParser(void* context) {
    auto& parser = *static_cast<xmlParserCtxt*>(context);
    parser.instate = XML_PARSER_EOF;
    parser.disableSAX = 1;
}

bool hasFailed(const xmlParserCtxt& context, const ParseError& error) {
    const bool errorNumber = context.errNo != XML_ERR_OK && context.lastError.level >= XML_ERR_ERROR;
    return context.wellFormed == 0 || context.nsWellFormed == 0 || errorNumber || error.isSet() ||
           xmlDocGetRootElement(context.myDoc) == nullptr;
}

}  // namespace

std::uint64_t lineOf(const _xmlNode* node) {
    while (node != nullptr && node->type != XML_ELEMENT_NODE) {
        node = node->parent;
    }
    return node == nullptr ? 0 : static_cast<std::uint64_t>(reinterpret_cast<std::intptr_t>(node->_private));
}

OwnedDocument parse(std::string_view source, const std::string& path, ParseError& error) {
    error = findForbiddenMarkup(source);
    if (error.isSet()) {
        return nullptr;
    }
    const hooks::MemoryWatch watch;
    std::unique_ptr<xmlParserCtxt, FreeParser> context(
        xmlCreatePushParserCtxt(nullptr, nullptr, nullptr, 0, path.empty() ? nullptr : path.c_str()));
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    context->_private = &error;
    context->sax->serror = &keepError;
    context->sax->internalSubset = &refuseDoctype;
    context->sax->startElementNs = &startElement;
    // Without HUGE a text ends at 10 MB. The guard against growing entities goes with it, but there are no
    // entities without a DOCTYPE.
    xmlCtxtUseOptions(context.get(),
                      XML_PARSE_HUGE | XML_PARSE_BIG_LINES | XML_PARSE_IGNORE_ENC | XML_PARSE_NONET);
    xmlDictSetLimit(context->dict, maxNameBytes);
    xmlSwitchToEncoding(context.get(), xmlGetCharEncodingHandler(XML_CHAR_ENCODING_8859_1));
    watch.check();
    const hooks::ScopedStop stop(&stopParser, context.get());
    for (std::size_t position = 0; position < source.size(); position += chunkSize) {
        const std::string_view chunk = source.substr(position, chunkSize);
        xmlParseChunk(context.get(), chunk.data(), static_cast<int>(chunk.size()), 0);
        watch.check();
    }
    xmlParseChunk(context.get(), nullptr, 0, 1);
    watch.check();
    if (hasFailed(*context, error)) {
        return nullptr;
    }
    return OwnedDocument(std::exchange(context->myDoc, nullptr));
}

}  // namespace windows::com::xml
