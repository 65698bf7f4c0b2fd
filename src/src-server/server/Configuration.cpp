#include "server/Configuration.h"

#include <limits>
#include <utility>

#include "server/LogLevel.h"
#include "util/Numbers.h"
#include "util/StringHelper.h"
#include "windows/com/xml/Document.h"
#include "windows/com/xml/SchemaCache.h"

namespace halvern::morvane {

namespace {

using windows::com::xml::Document;
using windows::com::xml::Element;
using windows::com::xml::SchemaCache;

template <class Number>
Number readNumber(const Element& root, const char* key) {
    using Limits = std::numeric_limits<Number>;
    return static_cast<Number>(util::toInteger(root.getElement(key).getText(), Limits::min(), Limits::max()));
}

// Any other word than these two is false, without complaint.
bool readBoolean(const Element& root, const char* key) {
    const std::string word = util::StringHelper::toLower(root.getElement(key).getText());
    return word == "true" || word == "1";
}

}  // namespace

ConfigurationReader::ConfigurationReader(std::string schemaPath) : _schemaPath(std::move(schemaPath)) {}

Configuration ConfigurationReader::read(const std::string& path, const LogSettings& setLog) const {
    return readLoaded([&](Document& document) { document.load(path); }, setLog);
}

Configuration ConfigurationReader::readText(const std::string& text) const {
    return readLoaded([&](Document& document) { document.loadXml(text); }, [](std::uint32_t, bool) {});
}

template <class Load>
Configuration ConfigurationReader::readLoaded(Load load, const LogSettings& setLog) const {
    Document schema;
    schema.load(_schemaPath);
    const std::string targetNamespace = schema.getTargetNamespace();
    SchemaCache schemas;
    schemas.add(schema, targetNamespace);

    Document document(schemas);
    document.setSelectionNamespaces("xmlns:mv='" + targetNamespace + "'");
    load(document);
    document.validate();

    Configuration configuration;
    const Element root = document.getElement("mv:morvane");
    configuration.port = readNumber<std::uint16_t>(root, "mv:port");
    configuration.maxInput = readNumber<std::int32_t>(root, "mv:maxInput");
    configuration.maxClients = readNumber<std::int32_t>(root, "mv:maxClients");
    configuration.clientQueueSize = readNumber<std::int32_t>(root, "mv:clientQueueSize");
    configuration.classifierRootPath = root.getElement("mv:classifierRootPath").getText();
    configuration.logLevel = logLevel::fromString(root.getElement("mv:logLevel").getText());
    configuration.logMemory = readBoolean(root, "mv:logMemory");
    setLog(configuration.logLevel, configuration.logMemory);
    configuration.saveRequests = readBoolean(root, "mv:saveRequests");
    document.saveXml(configuration.document);
    return configuration;
}

}  // namespace halvern::morvane
