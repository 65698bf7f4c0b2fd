#include "windows/com/xml/Tree.h"

#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <utility>

#include "windows/com/xml/Characters.h"
#include "windows/com/xml/LibraryHooks.h"

namespace windows::com::xml {

namespace {

const xmlChar* chars(const std::string& text) { return reinterpret_cast<const xmlChar*>(text.c_str()); }

// The result tells that an expression failed; without a handler the library would also print it.
void ignoreError(void*, xmlErrorPtr) {}

}  // namespace

void FreeDocument::operator()(_xmlDoc* document) const { xmlFreeDoc(document); }

void Tree::FreeContext::operator()(_xmlXPathContext* context) const { xmlXPathFreeContext(context); }

Tree::Tree(OwnedDocument document) : _document(std::move(document)) {}

Tree::~Tree() = default;

void Tree::setNamespaces(const Namespaces& namespaces) {
    _namespaces = namespaces;
    _context.reset();
}

void Tree::prepareContext() {
    const hooks::MemoryWatch watch;
    _context.reset(xmlXPathNewContext(_document.get()));
    if (_context != nullptr) {
        _context->error = &ignoreError;
        for (const auto& [prefix, uri] : _namespaces) {
            xmlXPathRegisterNs(_context.get(), chars(prefix), chars(uri));
        }
    }
    watch.check();
}

std::shared_ptr<_xmlXPathObject> Tree::select(_xmlNode* from, const std::string& expression) {
    const std::string utf8 = widen(expression);
    try {
        if (_context == nullptr) {
            prepareContext();
        }
        const hooks::MemoryWatch watch;
        _context->node = from;
        std::shared_ptr<xmlXPathObject> result(xmlXPathEvalExpression(chars(utf8), _context.get()),
                                               [](xmlXPathObject* object) { xmlXPathFreeObject(object); });
        watch.check();
        const bool isNodeSet = result != nullptr && result->type == XPATH_NODESET;
        return isNodeSet ? result : nullptr;
    } catch (const std::bad_alloc&) {
        // Nobody knows what is missing in it.
        _context.reset();
        throw;
    }
}

}  // namespace windows::com::xml
