#include "server/Start.h"

#include "platform/StopSignals.h"
#include "server/Startup.h"
#include "server/StartupException.h"
#include "windows/services/ServiceDispatcher.h"

namespace halvern::morvane {

int start(int argc, const char* const* argv, LogImpl& log, const io::filesystem::SaveFile& saveFile,
          const platform::memory::MemoryStatus& memoryStatus,
          const windows::seh::SehExceptionMapper& sehMapper) {
    try {
        const io::filesystem::ExistsFileImpl existsFile;
        const io::filesystem::ExistsDirImpl existsDir;
        const io::filesystem::LoadFileImpl loadFile;
        const io::filesystem::SizeFileImpl sizeFile;
        const io::filesystem::RemoveFileImpl removeFile;
        const windows::file::CreateFolderImpl createFolder;
        Startup startup(argc, argv, log, memoryStatus, sehMapper, saveFile, existsDir, existsFile, loadFile,
                        sizeFile, removeFile, createFolder, "./xml/schemas/config/ConfigSchema.xsd",
                        "./xml/schemas/server/RequestSchema.xsd", "./xml/schemas/server/ResponseSchema.xsd");
        if (startup.mode() == Mode::SERVE_AS_SERVICE) {
            windows::services::ServiceDispatcherImpl().dispatch(startup);
            // The manager restarts a service that has failed, and tells a stop from a failure by this.
            return startup.exitCode() == 0 ? 0 : 1;
        }
        // Signals are taken before the first thread of the server exists, so that all of them leave them
        // alone.
        const platform::StopSignals stopSignals([&startup] { startup.stopEvent().set(); });
        return startup.run();
    } catch (const ArgStartupException& e) {
        log.error(e.what());
        printUsage(log);
    } catch (...) {
        logStartupFailure(log);
    }
    return 1;
}

}  // namespace halvern::morvane
