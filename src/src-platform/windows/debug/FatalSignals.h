#pragma once

#include <array>
#include <csignal>
#include <string>

#include "windows/debug/MiniDump.h"
#include "windows/seh/ScopedSignalStack.h"
#include "windows/seh/SehExceptionMapper.h"

namespace windows::debug {

// While the object lives, a fatal signal (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT) in any thread leaves a
// dump and an entry in the log file and on standard error; then the process dies of that signal as it would
// have done anyway.
//
// A thread that is to be reported after using up its stack needs a ScopedSignalStack; the one that makes this
// object gets it here. Only one object at a time. Builds with a sanitizer keep the sanitizer's own report
// instead.
class FatalSignals {
public:
    // dumpFolder ends with a slash. The paths count from the directory that is current when the signal comes.
    // A log file that cannot be opened then is done without.
    FatalSignals(const MiniDump& miniDump, const windows::seh::SehExceptionMapper& mapper,
                 const std::string& dumpFolder, const std::string& logFile);
    FatalSignals(const FatalSignals&) = delete;
    FatalSignals& operator=(const FatalSignals&) = delete;
    ~FatalSignals();

private:
    static constexpr std::array<int, 5> SIGNALS = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

    static void onSignal(int signal, siginfo_t* info, void* context) noexcept;
    void report(int signal, const siginfo_t& info, const void* context) const noexcept;
    bool writeDumpInChild(int file, const DumpCause& cause) const noexcept;
    void writeLogEntry(const DumpCause& cause, const char* occurrence, const char* outcome) const noexcept;

    const MiniDump& _miniDump;
    const windows::seh::SehExceptionMapper& _mapper;
    const std::string _dumpFolder;
    const std::string _logFile;
    const long _secondsEastOfUtc;  // taken beforehand: finding out takes a lock
    const windows::seh::ScopedSignalStack _stack;
    std::array<struct sigaction, SIGNALS.size()> _previous{};
};

}  // namespace windows::debug
