#include "windows/com/xml/Library.h"

#include <libxml/catalog.h>
#include <libxml/parser.h>
#include <libxml/xmlschemastypes.h>
#include <libxml/xpath.h>

#include <mutex>
#include <new>

#include "windows/com/xml/LibraryHooks.h"

namespace windows::com::xml {

namespace {

std::mutex mutex;
std::size_t users = 0;  // guarded by mutex

}  // namespace

Library::Library() {
    const std::lock_guard lock(mutex);
    if (users == 0) {
        hooks::install();
        const hooks::MemoryWatch watch;
        xmlInitParser();
        // A processing instruction of a document can name a catalog, and so can the environment.
        xmlCatalogSetDefaults(XML_CATA_ALLOW_NONE);
        // Both would otherwise be set up by the first thread that needs them, without a lock.
        xmlSchemaInitTypes();
        xmlXPathInit();
        watch.check();
    }
    ++users;
}

Library::~Library() {
    const std::lock_guard lock(mutex);
    if (--users == 0) {
        xmlCleanupParser();
    }
}

}  // namespace windows::com::xml
