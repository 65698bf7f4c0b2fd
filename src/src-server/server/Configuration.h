#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace halvern::morvane {

// What the configuration document says.
struct Configuration {
    std::uint16_t port = 0;
    std::int32_t maxInput = 0;  // bytes of a request; below zero there is no limit
    std::int32_t maxClients = 0;
    std::int32_t clientQueueSize = 0;
    std::string classifierRootPath;  // as it stands there; may be empty, see rootPath
    std::uint32_t logLevel = 0;
    bool logMemory = false;
    bool saveRequests = false;
    std::string document;  // the whole document, for the log

    // The folder of the classifier files.
    std::string rootPath() const {
        return classifierRootPath.empty() ? "./classifiers/" : classifierRootPath;
    }
};

// Reads the configuration document, which a schema has to find valid first.
class ConfigurationReader {
public:
    using LogSettings = std::function<void(std::uint32_t level, bool logMemory)>;

    explicit ConfigurationReader(std::string schemaPath);

    // Gives the settings of the log to setLog as soon as they are read, so that they hold from before the
    // last key is read. Throws DocumentException, SchemaCacheException, ValidateException and
    // ElementException of windows::com::xml, exceptions::NumberFormatException and
    // logLevel::LogLevelException.
    Configuration read(const std::string& path, const LogSettings& setLog) const;

    // The same for a document that lies in memory and no log.
    Configuration readText(const std::string& text) const;

private:
    template <class Load>
    Configuration readLoaded(Load load, const LogSettings& setLog) const;

    std::string _schemaPath;
};

}  // namespace halvern::morvane
