#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "windows/com/xml/ExceptionThrower.h"
#include "windows/com/xml/LibraryTypes.h"

namespace windows::com::xml {

class Document;

// Compiled schemas by their target namespace.
//
// Filled by one thread at start-up; from then on any number of documents in any threads validate against it.
// Copies share their content.
class SchemaCache final : public ExceptionThrower {
public:
    SchemaCache();

    // Compiles the schema that document holds and files it under targetNamespace, which must be its own. The
    // files it includes are read only if document resolves externals. Throws SchemaCacheException.
    void add(const Document& document, const std::string& targetNamespace);

    // Tells a schema from any other: the 64-bit FNV-1a hash of the file that it was loaded from. 0 if it came
    // from no file, or if there is no schema for this namespace.
    std::uint64_t fingerprint(const std::string& targetNamespace) const;

private:
    friend class Document;
    class Schemas;

    // The schema for documents whose root is in this namespace, in UTF-8, or null.
    _xmlSchema* find(const std::string& targetNamespace) const;

    [[noreturn]] void raise(const std::string& text) const override;

    std::shared_ptr<Schemas> _schemas;
};

}  // namespace windows::com::xml
