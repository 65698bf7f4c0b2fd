#include "windows/debug/FatalSignals.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>

#include "debug/Assertion.h"
#include "io/filesystem/FileSystemHelper.h"
#include "platform/thread/LoggingThreadImpl.h"
#include "util/FixedStream.h"
#include "windows/debug/DumpFolder.h"
#include "windows/debug/DumpName.h"

namespace windows::debug {

namespace {

constexpr unsigned CHILD_SECONDS = 5;
// A little longer than the child gives itself.
constexpr int WAIT_MILLISECONDS = 6000;
constexpr int WAIT_STEP_MILLISECONDS = 5;

std::atomic<FatalSignals*> current = nullptr;
std::atomic<pid_t> reportingThread = 0;

using Text = util::FixedStream<4096>;

long secondsEastOfUtc() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return local.tm_gmtoff;
}

// A thread that runs out of stack touches memory close to its stack pointer; a wrong pointer hardly ever
// does.
bool isStackOverflow(int signal, const siginfo_t& info, const ucontext_t& context) {
#if defined(__x86_64__)
    constexpr std::uintptr_t NEAR = std::uintptr_t{64} * 1024;
    const auto address = reinterpret_cast<std::uintptr_t>(info.si_addr);
    const auto stackPointer = static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RSP]);
    return signal == SIGSEGV && info.si_code > 0 && info.si_code != SI_KERNEL &&
           address + NEAR >= stackPointer && address <= stackPointer + NEAR;
#else
    static_cast<void>(context);
    return false;
#endif
}

std::uint32_t codeOf(int signal, const siginfo_t& info, const ucontext_t& context) {
    return isStackOverflow(signal, info, context) ? windows::seh::STACK_OVERFLOW_CODE
                                                  : windows::seh::exceptionCodeOf(signal, info.si_code);
}

Text describe(int signal, const siginfo_t& info, const ucontext_t& context,
              const windows::seh::SehExceptionMapper& mapper) {
    Text text;
    text << "The process was ended by the signal SIG" << sigabbrev_np(signal)
         << ". Signal code: " << info.si_code << ".";
    if (info.si_code <= 0) {
        text << " Sent by the process: " << info.si_pid << ".";
        return text;
    }
    // The text form of a null pointer is "(nil)".
    text << " Address: ";
    if (info.si_addr != nullptr) {
        text << static_cast<const void*>(info.si_addr);
    } else {
        text << "0x0";
    }
    text << ".";
    if (const char* words = mapper.getText(codeOf(signal, info, context))) {
        text << " " << words;
    }
    return text;
}

void appendTwoColumns(Text& text, unsigned number, const char* filler) {
    text << (number < 10 ? filler : "") << number;
}

// The local time as it stands in every other entry of the log, without the lock that the C library takes.
void appendTime(Text& text, std::int64_t localSeconds) {
    static constexpr const char* WEEKDAYS[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* MONTHS[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::chrono::sys_seconds moment{std::chrono::seconds(localSeconds)};
    const auto day = std::chrono::floor<std::chrono::days>(moment);
    const std::chrono::year_month_day date{day};
    const std::chrono::hh_mm_ss clock{moment - day};
    text << WEEKDAYS[std::chrono::weekday{day}.c_encoding()] << " "
         << MONTHS[static_cast<unsigned>(date.month()) - 1] << " ";
    appendTwoColumns(text, static_cast<unsigned>(date.day()), " ");
    text << " ";
    appendTwoColumns(text, static_cast<unsigned>(clock.hours().count()), "0");
    text << ":";
    appendTwoColumns(text, static_cast<unsigned>(clock.minutes().count()), "0");
    text << ":";
    appendTwoColumns(text, static_cast<unsigned>(clock.seconds().count()), "0");
    text << " " << static_cast<int>(date.year());
}

void writeText(int file, const char* text) { io::filesystem::writeAll(file, text, std::strlen(text)); }

}  // namespace

FatalSignals::FatalSignals(const MiniDump& miniDump, const windows::seh::SehExceptionMapper& mapper,
                           const std::string& dumpFolder, const std::string& logFile)
    : _miniDump(miniDump),
      _mapper(mapper),
      _dumpFolder(dumpFolder),
      _logFile(logFile),
      _secondsEastOfUtc(secondsEastOfUtc()) {
    FatalSignals* none = nullptr;
    CHECK(current.compare_exchange_strong(none, this), "Fatal signals are being watched already.");
#ifndef MORVANE_SANITIZED
    struct sigaction action {};
    action.sa_sigaction = &FatalSignals::onSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < SIGNALS.size(); ++i) {
        sigaction(SIGNALS[i], &action, &_previous[i]);
    }
#endif
}

FatalSignals::~FatalSignals() {
#ifndef MORVANE_SANITIZED
    for (std::size_t i = 0; i < SIGNALS.size(); ++i) {
        sigaction(SIGNALS[i], &_previous[i], nullptr);
    }
#endif
    current = nullptr;
}

void FatalSignals::onSignal(int signal, siginfo_t* info, void* context) noexcept {
    pid_t other = 0;
    if (reportingThread.compare_exchange_strong(other, gettid())) {
        if (const FatalSignals* signals = current) {
            signals->report(signal, *info, context);
        }
    } else if (other != gettid()) {
        // The thread that came first ends the process when its dump is written.
        while (true) {
            pause();
        }
    }
    // Arrives when this handler returns, also where the faulty instruction would not run again.
    std::signal(signal, SIG_DFL);
    raise(signal);
}

void FatalSignals::report(int signal, const siginfo_t& info, const void* context) const noexcept {
    const Text text = describe(signal, info, *static_cast<const ucontext_t*>(context), _mapper);
    // The code 0 is no fault of the thread's own: an abort has been reported by whoever called for it.
    util::FixedStream<1024> occurrence;
    if (const std::uint32_t code = codeOf(signal, info, *static_cast<const ucontext_t*>(context));
        code != 0) {
        platform::thread::LoggingThreadImpl::describeFault(code, occurrence);
    }
    const DumpCause cause = {text.str(), std::time(nullptr), getpid(), gettid(), context};
    Text path;
    path << _dumpFolder.c_str() << dumpName(cause.threadId, cause.time).str();
    Text reason = dumpRefusal(_dumpFolder.c_str());
    Text outcome;
    if (*reason.str() == 0) {
        const io::filesystem::ScopedDescriptor file(openDump(path.str()));
        if (!file.isOpen()) {
            reason.appendSystemError(static_cast<std::uint32_t>(errno));
        } else {
            // A part of a dump is better than none, so it stays.
            const bool complete = writeDumpInChild(file.get(), cause);
            outcome << (complete ? "Dump is here: " : "A part of a dump is here: ") << path.str() << "\n";
        }
    }
    if (*reason.str() != 0) {
        outcome << "Failed to create dump (" << path.str() << ") reason: " << reason.str() << "\n";
    }
    writeLogEntry(cause, occurrence.str(), outcome.str());
}

bool FatalSignals::writeDumpInChild(int file, const DumpCause& cause) const noexcept {
    // The dump is written from a copy of the memory: whatever is broken there, locked or endless takes down
    // the child only. _Fork runs no handlers of others and takes no lock.
    const pid_t child = _Fork();
    if (child == 0) {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGALRM);
        std::signal(SIGALRM, SIG_DFL);
        for (const int signal : SIGNALS) {
            std::signal(signal, SIG_DFL);
            sigaddset(&signals, signal);
        }
        sigprocmask(SIG_UNBLOCK, &signals, nullptr);
        alarm(CHILD_SECONDS);
        _exit(_miniDump.write(file, cause) == 0 ? 0 : 1);
    }
    if (child < 0) {
        return false;
    }
    for (int waited = 0; waited < WAIT_MILLISECONDS; waited += WAIT_STEP_MILLISECONDS) {
        int status = 0;
        const pid_t ended = waitpid(child, &status, WNOHANG);
        if (ended == child) {
            return WIFEXITED(status) && WEXITSTATUS(status) == 0;
        }
        if (ended < 0 && errno != EINTR) {
            return false;
        }
        const timespec pauseTime = {0, WAIT_STEP_MILLISECONDS * 1000000L};
        nanosleep(&pauseTime, nullptr);
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return false;
}

void FatalSignals::writeLogEntry(const DumpCause& cause, const char* occurrence,
                                 const char* outcome) const noexcept {
    // Not through the log, whose lock the stopped thread may hold.
    Text entry;
    appendTime(entry, cause.time + _secondsEastOfUtc);
    entry << " [Failure] [ThreadId: " << cause.threadId << "]\n"
          << occurrence << (*occurrence != 0 ? "\n" : "") << cause.text << "\n"
          << outcome << "\n";
    const io::filesystem::ScopedDescriptor file(
        io::filesystem::openFile(_logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666));
    if (file.isOpen()) {
        writeText(file.get(), entry.str());
    }
    writeText(STDERR_FILENO, entry.str());
}

}  // namespace windows::debug
