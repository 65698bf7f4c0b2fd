#pragma once

#include <string>

#include "windows/com/xml/Document.h"
#include "windows/com/xml/Library.h"
#include "windows/com/xml/SchemaCache.h"
#include "windows/com/xml/XMLException.h"

namespace support {

// A compiled schema with the namespace and the version that it declares. Any number of threads may use it.
class LoadedSchema {
public:
    explicit LoadedSchema(const std::string& path) {
        windows::com::xml::Document document;
        document.setResolveExternals(true);
        document.load(path);
        _targetNamespace = document.getTargetNamespace();
        const windows::com::xml::Element root = document.getRootElement();
        _version = root.hasAttribute("version") ? root.getAttribute("version") : "";
        _cache.add(document, _targetNamespace);
    }

    const windows::com::xml::SchemaCache& cache() const { return _cache; }
    const std::string& targetNamespace() const { return _targetNamespace; }
    const std::string& version() const { return _version; }

    // An empty document that validates against the schema and selects with the prefix mv.
    windows::com::xml::Document newDocument() const {
        windows::com::xml::Document document(_cache);
        document.setSelectionNamespaces("xmlns:mv='" + targetNamespace() + "'");
        return document;
    }

    // Empty if text is valid, else the words of the failure to load or validate it.
    std::string problemOf(const std::string& text) const {
        windows::com::xml::Document document = newDocument();
        try {
            document.loadXml(text);
            document.validate();
            return "";
        } catch (const exceptions::Exception& e) {
            return e.what();
        }
    }

private:
    windows::com::xml::Library _library;
    windows::com::xml::SchemaCache _cache;
    std::string _targetNamespace;
    std::string _version;
};

}  // namespace support
