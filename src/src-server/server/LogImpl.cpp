#include "server/LogImpl.h"

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <new>

#include "exceptions/Exception.h"
#include "platform/mutex/AutoLock.h"
#include "server/LogLevel.h"
#include "util/DateAndTime.h"
#include "util/StringStream.h"
#include "windows/debug/DumpName.h"

namespace halvern::morvane {

namespace {

constexpr std::uint64_t MEGABYTE = 1000000;

class ScopedFlag {
public:
    explicit ScopedFlag(bool& flag) : _flag(flag), _before(flag) { _flag = true; }
    ScopedFlag(const ScopedFlag&) = delete;
    ScopedFlag& operator=(const ScopedFlag&) = delete;
    ~ScopedFlag() { _flag = _before; }

private:
    bool& _flag;
    const bool _before;
};

void writeToConsole(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

}  // namespace

LogImpl::LogImpl(const std::string& logFile, const std::string& dumpFolder,
                 const io::filesystem::SaveFile& saveFile, windows::debug::WriteDump& writeDump,
                 const platform::memory::MemoryStatus& memoryStatus)
    : _logFile(logFile),
      _dumpFolder(dumpFolder),
      _saveFile(saveFile),
      _writeDump(writeDump),
      _memoryStatus(memoryStatus) {}

void LogImpl::log(const std::string& text) noexcept {
    guarded(logLevel::log, [&] { write(logLevel::log, text); });
}

void LogImpl::error(const std::string& text) noexcept {
    guarded(logLevel::error, [&] {
        std::string lines = text + "\n";
        if (_dumpOnError) {
            lines += dump("Dump is here: ", "Failed to create dump (");
        }
        write(logLevel::error, lines);
    });
}

void LogImpl::test(const std::string& text) noexcept {
    guarded(logLevel::test, [&] { write(logLevel::test, text); });
}

void LogImpl::assertion(const std::string& expression, const std::string& description,
                        const std::string& file, std::uint32_t line) noexcept {
    guarded(logLevel::failure, [&] {
        std::string lines =
            "An assertion occurred in the Morvane server.\n"
            "This could be serious and you should contact the developer with this information.\n"
            "Expression: " +
            expression + "\nDescription: " + description + "\nFile: " + file +
            "\nLine: " + std::to_string(line) +
            "\n\n"
            "Please send this information to support@morvane.example.\n"
            "Thank you for helping us improve our software.\n\n";
        lines += dump("Crash dump here: ", "Failed to create crash dump (");
        write(logLevel::failure, lines);
    });
}

template <class Work>
void LogImpl::guarded(std::uint32_t level, Work work) noexcept {
    // Most lines of a quiet log come to nothing, and no request should wait for another one's.
    const bool isTest = level == logLevel::test;
    if (level < _level && !isTest) {
        return;
    }
    try {
        platform::mutex::AutoLock<platform::mutex::MutexImpl> lock(_mutex);
        lock.lock();
        if (isTest || ((_toConsole || _toFile) && !_inside)) {
            const ScopedFlag inside(_inside);
            work();
        }
    } catch (...) {
        // There is nobody to tell: whoever asks for a log entry is in the middle of something else.
        return;
    }
}

std::string LogImpl::dump(const char* success, const char* failure) {
    const std::string path = _dumpFolder + windows::debug::dumpName().str();
    try {
        _writeDump.write(path);
    } catch (const windows::debug::WriteDumpException& e) {
        return failure + path + ") reason: " + e.what() + "\n";
    }
    return success + path + "\n";
}

void LogImpl::write(std::uint32_t level, const std::string& text) {
    // Where memory runs out, an operator learns more from the bare text than from silence.
    try {
        std::string whole = entryOrBareText(level, text);
        if (_toFile) {
            appendToFile(whole);
        }
        if (_toConsole) {
            writeToConsole(whole);
        }
    } catch (const std::bad_alloc&) {
        if (_toConsole) {
            writeToConsole(text);
        }
    }
}

std::string LogImpl::entryOrBareText(std::uint32_t level, const std::string& text) const {
    try {
        return entry(level, text);
    } catch (const std::bad_alloc&) {
        return text;
    }
}

std::string LogImpl::entry(std::uint32_t level, const std::string& text) const {
    util::StringStream<4096> entry;
    entry << util::DateAndTime::now().str() << " [" << logLevel::toString(level)
          << "] [ThreadId: " << gettid() << "]";
    if (_logMemory) {
        try {
            const std::uint64_t available = _memoryStatus.available();
            entry << " [Free: " << available / MEGABYTE << "MB]";
        } catch (const platform::memory::MemoryStatusException&) {
            // The text matters more than the figure.
            entry << " [Free: unknown]";
        }
    }
    entry << (text.find('\n') != std::string::npos ? "\n" : " ") << text << "\n";
    return entry.str();
}

void LogImpl::appendToFile(std::string& entry) const {
    try {
        _saveFile.save(_logFile, util::Bytes(entry.begin(), entry.end()), io::filesystem::SaveFile::APPEND);
    } catch (const exceptions::Exception& e) {
        entry += std::string("Error when logging: ") + e.what() + "\n";
    } catch (const std::exception& e) {
        entry += std::string("Error when logging: ") + e.what() + "\n";
    } catch (...) {
        entry += "A ... exception occured when trying to log a message.\n";
    }
}

}  // namespace halvern::morvane
