// A configuration document, which lies in a file that is in memory alone.
#include <sys/mman.h>
#include <unistd.h>

#include "Target.h"
#include "exceptions/Exception.h"
#include "server/Configuration.h"
#include "server/LogLevel.h"
#include "windows/com/xml/Library.h"

namespace {

class FileInMemory {
public:
    FileInMemory(const std::uint8_t* data, std::size_t size)
        : _descriptor(memfd_create("configuration", MFD_CLOEXEC)) {
        PROMISE(write(_descriptor, data, size) == static_cast<ssize_t>(size));
    }
    FileInMemory(const FileInMemory&) = delete;
    FileInMemory& operator=(const FileInMemory&) = delete;
    ~FileInMemory() { close(_descriptor); }

    std::string path() const { return "/proc/self/fd/" + std::to_string(_descriptor); }

private:
    int _descriptor;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const windows::com::xml::Library library;
    static const halvern::morvane::ConfigurationReader reader(MORVANE_SCHEMAS "/config/ConfigSchema.xsd");
    const FileInMemory file(data, size);
    bool logIsSet = false;
    try {
        const auto configuration = reader.read(file.path(), [&](std::uint32_t level, bool) {
            PROMISE(level <= halvern::morvane::logLevel::test);
            logIsSet = true;
        });
        PROMISE(logIsSet);
        PROMISE(configuration.maxClients >= 1);
        PROMISE(configuration.logLevel <= halvern::morvane::logLevel::test);
        PROMISE(configuration.classifierRootPath.find('\0') == std::string::npos);
        PROMISE(!configuration.document.empty());
    } catch (const exceptions::Exception& refusal) {
        PROMISE(refusal.what()[0] != '\0');
    }
    return 0;
}
