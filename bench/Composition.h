#pragma once

#include <memory>
#include <string>

#include "io/filesystem/ExistsFile.h"
#include "io/filesystem/LoadFile.h"
#include "io/filesystem/RemoveFile.h"
#include "io/filesystem/SaveFile.h"
#include "io/filesystem/SizeFile.h"
#include "platform/memory/MemoryStatus.h"
#include "server/ClassifierCallbackFactoryImpl.h"
#include "server/ClassifierFactoryImpl.h"
#include "server/EmptyXmlHookImpl.h"
#include "server/JobDistribution.h"
#include "server/Log.h"
#include "server/XmlClassifier.h"
#include "server/XmlErrorResponseImpl.h"
#include "server/XmlResponseImpl.h"
#include "windows/com/xml/Document.h"
#include "windows/com/xml/Library.h"
#include "windows/com/xml/SchemaCache.h"

namespace bench {

using namespace halvern::morvane;

class SilentLog final : public Log {
public:
    using Log::assertion;
    using Log::error;
    using Log::log;
    using Log::test;
    void log(const std::string&) noexcept override {}
    void error(const std::string&) noexcept override {}
    void test(const std::string&) noexcept override {}
    void assertion(const std::string&, const std::string&, const std::string&,
                   std::uint32_t) noexcept override {}
};

// The document around what stands between the root's tags of a request.
inline std::string requestAround(const std::string& content) {
    return "<?xml version='1.0'?><morvane xmlns='http://morvane.example/1/server/RequestSchema' "
           "version='1.01'>" +
           content + "</morvane>";
}

struct Disk {
    const io::filesystem::LoadFile& load;
    const io::filesystem::SaveFile& save;
    const io::filesystem::ExistsFile& exists;
    const io::filesystem::SizeFile& size;
    const io::filesystem::RemoveFile& remove;
};

// What stands behind the server's connections, composed as the program does it, without its log.
struct Composition {
    // What disk refers to must outlive this object.
    Composition(const Disk& disk, const std::string& root)
        : table(classifiers, memory, disk.load, disk.save, disk.exists, disk.size, disk.remove, callbacks,
                root, log) {
        windows::com::xml::Document document;
        document.load(MORVANE_SCHEMAS "/server/RequestSchema.xsd");
        schemas.add(document, document.getTargetNamespace());
        factory = std::make_unique<XmlClassifierFactoryImpl>(table, responses, errors, hooks, schemas,
                                                             document.getTargetNamespace(), root, log);
    }
    Composition(const Composition&) = delete;
    Composition& operator=(const Composition&) = delete;

    windows::com::xml::Library library;
    SilentLog log;
    platform::memory::MemoryStatusImpl memory;
    ClassifierFactoryImpl classifiers;
    ClassifierCallbackFactoryImpl callbacks{log};
    JobDistributionImpl table;
    XmlResponseFactoryImpl responses{"http://morvane.example/1/server/ResponseSchema"};
    XmlErrorResponseFactoryImpl errors{"http://morvane.example/1/server/ResponseSchema", "1.01"};
    EmptyXmlHookFactoryImpl hooks;
    windows::com::xml::SchemaCache schemas;
    std::unique_ptr<XmlClassifierFactoryImpl> factory;
};

}  // namespace bench
