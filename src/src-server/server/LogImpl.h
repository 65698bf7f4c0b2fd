#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "io/filesystem/SaveFile.h"
#include "platform/memory/MemoryStatus.h"
#include "platform/mutex/MutexImpl.h"
#include "server/Log.h"
#include "windows/debug/WriteDump.h"

namespace halvern::morvane {

// The log as lines in a file, on standard output, or both.
//
// An entry is "Wed Nov  8 13:33:45 2026 [Log] [ThreadId: 3042] text"; a text of several lines begins below
// its head. One lock is held through the whole of an operation, so entries never interleave, and whoever logs
// waits for a dump that another thread has caused. What an operation logs on the way, on its own thread, is
// dropped. Failures of the log stay inside it; that of the file shows on standard output.
//
// A new log lets every level through and writes to standard output only. The set operations take no lock:
// they are for the start, while one thread runs. Level and dumps alone may be set at any time.
class LogImpl final : public Log {
public:
    // dumpFolder ends with a slash. The collaborators must outlive the log.
    LogImpl(const std::string& logFile, const std::string& dumpFolder,
            const io::filesystem::SaveFile& saveFile, windows::debug::WriteDump& writeDump,
            const platform::memory::MemoryStatus& memoryStatus);

    using Log::assertion;
    using Log::error;
    using Log::log;
    using Log::test;
    void log(const std::string& text) noexcept override;
    void error(const std::string& text) noexcept override;
    void test(const std::string& text) noexcept override;
    void assertion(const std::string& expression, const std::string& description, const std::string& file,
                   std::uint32_t line) noexcept override;

    void setToConsole(bool toConsole) { _toConsole = toConsole; }
    void setToFile(bool toFile) { _toFile = toFile; }
    // The lowest level that is written.
    void setLevel(std::uint32_t level) { _level = level; }
    // Adds the free memory, in units of 10^6 bytes, to each entry.
    void setLogMemory(bool logMemory) { _logMemory = logMemory; }
    // Makes each error bring a dump with it.
    void setDumpOnError(bool dumpOnError) { _dumpOnError = dumpOnError; }

private:
    // Runs work under the lock unless the level or the lack of an output stands against it.
    template <class Work>
    void guarded(std::uint32_t level, Work work) noexcept;

    std::string dump(const char* success, const char* failure);  // _mutex held
    void write(std::uint32_t level, const std::string& text);    // _mutex held
    std::string entryOrBareText(std::uint32_t level, const std::string& text) const;
    std::string entry(std::uint32_t level, const std::string& text) const;
    void appendToFile(std::string& entry) const;  // _mutex held

    const std::string _logFile;
    const std::string _dumpFolder;
    const io::filesystem::SaveFile& _saveFile;
    windows::debug::WriteDump& _writeDump;
    const platform::memory::MemoryStatus& _memoryStatus;

    platform::mutex::MutexImpl _mutex;  // re-entrant
    bool _inside = false;               // guarded by _mutex, so it speaks of the thread that holds it

    std::atomic<std::uint32_t> _level = 0;
    bool _toConsole = true;
    bool _toFile = false;
    bool _logMemory = false;
    std::atomic<bool> _dumpOnError = false;
};

}  // namespace halvern::morvane
