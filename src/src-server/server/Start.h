#pragma once

#include "io/filesystem/SaveFile.h"
#include "platform/memory/MemoryStatus.h"
#include "server/LogImpl.h"
#include "windows/seh/SehExceptionMapper.h"

namespace halvern::morvane {

inline constexpr const char* LOG_DIRECTORY = "./logs/";
inline constexpr const char* LOG_FILE = "./logs/log.txt";
inline constexpr const char* CAPTURE_DIRECTORY = "./logs/requests/";

// Builds Startup, runs it on the console or as a service, and catches everything. Returns the exit code of
// the process: 0 for a finished run, 1 after a failure, which has been logged.
int start(int argc, const char* const* argv, LogImpl& log, const io::filesystem::SaveFile& saveFile,
          const platform::memory::MemoryStatus& memoryStatus,
          const windows::seh::SehExceptionMapper& sehMapper);

}  // namespace halvern::morvane
