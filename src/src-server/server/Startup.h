#pragma once

#include <string>

#include "io/filesystem/ExistsDir.h"
#include "io/filesystem/ExistsFile.h"
#include "io/filesystem/LoadFile.h"
#include "io/filesystem/RemoveFile.h"
#include "io/filesystem/SaveFile.h"
#include "io/filesystem/SizeFile.h"
#include "platform/event/Event.h"
#include "platform/memory/MemoryStatus.h"
#include "server/CommandLine.h"
#include "server/Configuration.h"
#include "server/LogImpl.h"
#include "util/parser/ArgumentParser.h"
#include "windows/file/CreateFolder.h"
#include "windows/seh/SehExceptionMapper.h"
#include "windows/services/ServiceMain.h"

namespace halvern::morvane {

// The composition root: the order in which the server is built, run and taken down.
//
// Nothing below it reaches for a global; every object of the server is built on the stack of the thread that
// calls run, gets its collaborators by reference, and dies there in reverse order. As a service, it is run by
// serviceMain.
class Startup final : public windows::services::ServiceMain {
public:
    // Makes the executable's folder the current directory, opens the log file and reads the command line.
    // Throws ArgStartupException for a wrong command line and SystemStartupException where the machine is not
    // as it must be. All references must outlive the object.
    Startup(int argc, const char* const* argv, LogImpl& log,
            const platform::memory::MemoryStatus& memoryStatus,
            const windows::seh::SehExceptionMapper& sehMapper, const io::filesystem::SaveFile& saveFile,
            const io::filesystem::ExistsDir& existsDir, const io::filesystem::ExistsFile& existsFile,
            const io::filesystem::LoadFile& loadFile, const io::filesystem::SizeFile& sizeFile,
            const io::filesystem::RemoveFile& removeFile, const windows::file::CreateFolder& createFolder,
            const std::string& configSchemaPath, const std::string& requestSchemaPath,
            const std::string& responseSchemaPath);

    // Does what the command line asks for; when that is to serve, blocks until the stop event is set.
    // Returns the exit code: 0, or 1 after a failure that has been logged.
    int run();

    // Setting it ends run in an orderly way. May be set from any thread.
    platform::event::Event& stopEvent() { return _stopEvent; }

    Mode mode() const { return _mode; }

    std::string getServiceName() const override;
    void serviceMain() override;
    std::uint32_t handler(std::uint32_t control) override;

private:
    void enterProgramDirectory() const;
    void openLogFile();
    void readCommandLine(int argc, const char* const* argv);

    bool commandService();
    void reportToManager(windows::services::ServiceState state, std::uint32_t exitCode = 0) noexcept;
    void serve();
    Configuration readConfiguration(const std::string& path);
    void makeFolder(const std::string& path, const std::string& complaint, bool verify) const;
    std::string systemFigures() const;

    LogImpl& _log;
    const platform::memory::MemoryStatus& _memoryStatus;
    const windows::seh::SehExceptionMapper& _sehMapper;
    platform::event::EventImpl _stopEvent;
    Mode _mode;
    bool _runningAsService = false;
    util::parser::ArgumentParser _arguments;
    const io::filesystem::SaveFile& _saveFile;
    const io::filesystem::ExistsDir& _existsDir;
    const io::filesystem::ExistsFile& _existsFile;
    const io::filesystem::LoadFile& _loadFile;
    const io::filesystem::SizeFile& _sizeFile;
    const io::filesystem::RemoveFile& _removeFile;
    const windows::file::CreateFolder& _createFolder;
    const std::string _configSchemaPath;
    const std::string _requestSchemaPath;
    const std::string _responseSchemaPath;
};

// Logs the exception that is being handled in the words of a failed start. To be called in a catch clause.
void logStartupFailure(Log& log);

}  // namespace halvern::morvane
