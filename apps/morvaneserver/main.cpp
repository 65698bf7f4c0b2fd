#include <malloc.h>

#include <csignal>

#include "platform/memory/MemoryStatus.h"
#include "server/LogImpl.h"
#include "server/ReportHookImpl.h"
#include "server/Start.h"
#include "windows/debug/FatalSignals.h"
#include "windows/debug/MiniDump.h"
#include "windows/debug/ReportHook.h"
#include "windows/debug/WriteDump.h"
#include "windows/file/DeleteFile.h"
#include "windows/seh/SehExceptionMapper.h"

int main(int argc, char* argv[]) {
    // Lanes and file images above this size get pages of their own, which go back to the system when they are
    // freed. Otherwise an eviction would not raise the free memory that the next load looks at. It also stops
    // the threshold from growing by itself.
    constexpr int LARGE_BLOCK_BYTES = 128 * 1024;
    mallopt(M_MMAP_THRESHOLD, LARGE_BLOCK_BYTES);

    // A file that has reached the process's size limit is then a failed write, as on a full disk, and not the
    // end of the server.
    std::signal(SIGXFSZ, SIG_IGN);

    using namespace halvern::morvane;
    const windows::debug::MiniDumpImpl miniDump("Morvane Server 2.40");
    const windows::file::DeleteFileImpl deleteFile;
    windows::debug::WriteDumpImpl writeDump(miniDump, deleteFile);
    const io::filesystem::SaveFileImpl saveFile;
    const platform::memory::MemoryStatusImpl memoryStatus;
    LogImpl log(LOG_FILE, LOG_DIRECTORY, saveFile, writeDump, memoryStatus);
    ReportHookImpl reportHook(log);
    windows::debug::ReportHook::setCurrent(reportHook);
    const windows::seh::SehExceptionMapperImpl sehMapper;
    const windows::debug::FatalSignals fatalSignals(miniDump, sehMapper, LOG_DIRECTORY, LOG_FILE);
    const int exitCode = start(argc, argv, log, saveFile, memoryStatus, sehMapper);
    windows::debug::ReportHook::releaseCurrent();
    return exitCode;
}
