#include "windows/debug/MiniDump.h"

#include <cxxabi.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <memory>

#include "io/filesystem/FileSystemHelper.h"
#include "windows/debug/DumpText.h"

// Of libbacktrace, whose header lies among those of one compiler, where others don't find it.
extern "C" {
using OnBacktraceError = void (*)(void* data, const char* message, int error);
backtrace_state* backtrace_create_state(const char* program, int threaded, OnBacktraceError, void* data);
int backtrace_simple(backtrace_state*, int skip, int (*onFrame)(void* data, std::uintptr_t counter),
                     OnBacktraceError, void* data);
int backtrace_pcinfo(backtrace_state*, std::uintptr_t counter,
                     int (*onLine)(void* data, std::uintptr_t counter, const char* file, int line,
                                   const char* function),
                     OnBacktraceError, void* data);
int backtrace_syminfo(backtrace_state*, std::uintptr_t address,
                      void (*onSymbol)(void* data, std::uintptr_t address, const char* symbol,
                                       std::uintptr_t value, std::uintptr_t size),
                      OnBacktraceError, void* data);
}

namespace windows::debug {

namespace {

// The frames below that of a runaway recursion are all alike.
constexpr std::size_t MAX_FRAMES = 64;
// The frames of the signal handler itself come first and are left out.
constexpr std::size_t MAX_HANDLER_FRAMES = 16;

struct Frames {
    std::array<std::uintptr_t, MAX_FRAMES + MAX_HANDLER_FRAMES> counters;
    std::size_t size = 0;

    bool add(std::uintptr_t counter) {
        // A thread's first frame has no place to return to: 0, or 1 less where a return address was expected.
        if (size < counters.size() && counter + 1 > 1) {
            counters[size++] = counter;
        }
        return size < counters.size();
    }
};

void ignoreError(void*, const char*, int) {}

backtrace_state* symbolsOfTheProcess() {
    static backtrace_state* const symbols = backtrace_create_state(nullptr, 1, ignoreError, nullptr);
    return symbols;
}

// The data of a frame, which the library hands out call by call: one for each inlined function.
struct FramePrinter {
    DumpText& text;
    const bool mayAllocate;
    bool named = false;

    void name(const char* function) {
        if (mayAllocate) {
            int status = 0;
            const std::unique_ptr<char, decltype(&std::free)> words(
                abi::__cxa_demangle(function, nullptr, nullptr, &status), &std::free);
            if (words) {
                text << words.get();
                return;
            }
        }
        text << function;
    }

    static int onLine(void* self, std::uintptr_t, const char* file, int line, const char* function) {
        auto& printer = *static_cast<FramePrinter*>(self);
        if (function != nullptr) {
            printer.text << (printer.named ? "\n      inlined into " : " ");
            printer.name(function);
            if (file != nullptr) {
                printer.text << "\n      at " << file << ":" << std::int64_t{line};
            }
            printer.named = true;
        }
        return 0;
    }

    static void onSymbol(void* self, std::uintptr_t counter, const char* symbol, std::uintptr_t start,
                         std::uintptr_t) {
        auto& printer = *static_cast<FramePrinter*>(self);
        if (symbol != nullptr) {
            printer.text << " ";
            printer.name(symbol);
            printer.text << " + " << static_cast<std::int64_t>(counter - start);
            printer.named = true;
        }
    }
};

void printFrame(DumpText& text, backtrace_state* symbols, std::size_t number, std::uintptr_t counter,
                bool mayAllocate) {
    text << "#" << static_cast<std::int64_t>(number) << " ";
    text.hex(counter);
    FramePrinter printer{text, mayAllocate};
    if (symbols != nullptr) {
        backtrace_pcinfo(symbols, counter, &FramePrinter::onLine, ignoreError, &printer);
        if (!printer.named) {
            backtrace_syminfo(symbols, counter, &FramePrinter::onSymbol, ignoreError, &printer);
        }
    }
    text << (printer.named ? "\n" : " (no name)\n");
}

#if defined(__x86_64__)

// Reads a word that may not be there: the kernel refuses a bad address where a plain access would be a new
// fault.
bool readWord(std::uintptr_t address, std::uintptr_t& word) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    const io::filesystem::ScopedDescriptor out(ends[0]);
    const io::filesystem::ScopedDescriptor in(ends[1]);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a register holds no pointer until we say so
    return write(in.get(), reinterpret_cast<const void*>(address), sizeof(word)) == sizeof(word) &&
           read(out.get(), &word, sizeof(word)) == sizeof(word);
}

// After a call of a bad address the unwinder knows nothing of the caller. The return address is the last word
// pushed, and the frame pointers that this program is built with lead on from there.
void addFramesBehindABadCall(const ucontext_t& context, Frames& frames) {
    std::uintptr_t returnAddress = 0;
    if (!readWord(static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RSP]), returnAddress)) {
        return;
    }
    auto frame = static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RBP]);
    std::uintptr_t next = 0;
    while (frames.add(returnAddress - 1) && readWord(frame, next) &&
           readWord(frame + sizeof(frame), returnAddress) && returnAddress != 0) {
        // A frame pointer that leads back comes from code that uses the register for something else.
        frame = next > frame ? next : 0;
    }
}

std::uintptr_t stoppedAt(const ucontext_t& context) {
    return static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RIP]);
}

void printRegisters(DumpText& text, const ucontext_t& context) {
    static constexpr struct {
        const char* name;
        int index;
    } REGISTERS[] = {{"rip", REG_RIP}, {"rsp", REG_RSP},    {"rbp", REG_RBP},   {"rax", REG_RAX},
                     {"rbx", REG_RBX}, {"rcx", REG_RCX},    {"rdx", REG_RDX},   {"rsi", REG_RSI},
                     {"rdi", REG_RDI}, {"r8", REG_R8},      {"r9", REG_R9},     {"r10", REG_R10},
                     {"r11", REG_R11}, {"r12", REG_R12},    {"r13", REG_R13},   {"r14", REG_R14},
                     {"r15", REG_R15}, {"eflags", REG_EFL}, {"error", REG_ERR}, {"cr2", REG_CR2}};
    text << "\nRegisters:\n";
    for (const auto& entry : REGISTERS) {
        text << entry.name << " ";
        text.hex(static_cast<std::uint64_t>(context.uc_mcontext.gregs[entry.index])) << "\n";
    }
}

#else

void addFramesBehindABadCall(const ucontext_t&, Frames&) {}
std::uintptr_t stoppedAt(const ucontext_t&) { return 0; }
void printRegisters(DumpText&, const ucontext_t&) {}

#endif

void printStack(DumpText& text, backtrace_state* symbols, const ucontext_t* context) {
    Frames frames;
    const auto collect = [](void* data, std::uintptr_t counter) {
        return static_cast<Frames*>(data)->add(counter) ? 0 : 1;
    };
    // Fails without symbols only in the form that needs some.
    if (symbols != nullptr) {
        backtrace_simple(symbols, 0, collect, ignoreError, &frames);
    }
    const auto begin = frames.counters.begin();
    auto end = begin + static_cast<std::ptrdiff_t>(frames.size);
    auto first = begin;
    if (context != nullptr) {
        first = std::find(begin, end, stoppedAt(*context));
        if (first == end || first + 1 == end) {
            frames.size = 0;
            frames.add(stoppedAt(*context));
            addFramesBehindABadCall(*context, frames);
            first = begin;
            end = begin + static_cast<std::ptrdiff_t>(frames.size);
        }
    }
    text << "\nStack:\n";
    for (std::size_t number = 0; first != end && number < MAX_FRAMES; ++first, ++number) {
        printFrame(text, symbols, number, *first, context == nullptr);
    }
}

// The C library's own conversion takes a lock.
void printTime(DumpText& text, std::int64_t time) {
    const std::chrono::sys_seconds moment{std::chrono::seconds(time)};
    const auto day = std::chrono::floor<std::chrono::days>(moment);
    const std::chrono::year_month_day date{day};
    const std::chrono::hh_mm_ss clock{moment - day};
    text << std::int64_t{static_cast<int>(date.year())} << "-";
    text.twoDigits(static_cast<unsigned>(date.month())) << "-";
    text.twoDigits(static_cast<unsigned>(date.day())) << " ";
    text.twoDigits(static_cast<unsigned>(clock.hours().count())) << ":";
    text.twoDigits(static_cast<unsigned>(clock.minutes().count())) << ":";
    text.twoDigits(static_cast<unsigned>(clock.seconds().count())) << " UTC\n";
}

void printMemoryMap(DumpText& text) {
    constexpr const char* CUT = "(cut)\n";
    constexpr std::size_t CUT_SIZE = 6;
    text << "\nMemory map:\n";
    const io::filesystem::ScopedDescriptor maps(io::filesystem::openFile("/proc/self/maps", O_RDONLY));
    char part[2048];
    ssize_t count = 0;
    while (maps.isOpen() && (count = read(maps.get(), part, sizeof(part))) > 0) {
        const auto size = static_cast<std::size_t>(count);
        if (size + CUT_SIZE > text.room()) {
            text << CUT;
            return;
        }
        text.append(part, size);
    }
}

void printProgram(DumpText& text, const char* build) {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    text << "Build: " << build << ", compiler " << __VERSION__ << "\nProgram: ";
    text.append(path, length > 0 ? static_cast<std::size_t>(length) : 0);
    text << "\n";
}

}  // namespace

DumpCause DumpCause::ofCallingThread(const char* text) {
    return {text, std::time(nullptr), getpid(), gettid(), nullptr};
}

MiniDumpImpl::MiniDumpImpl(const char* build) : _build(build), _symbols(symbolsOfTheProcess()) {
    // The first look-up reads the debug data, which takes milliseconds, memory and locks.
    const io::filesystem::ScopedDescriptor nowhere(io::filesystem::openFile("/dev/null", O_WRONLY));
    write(nowhere.get(), DumpCause::ofCallingThread(""));
}

int MiniDumpImpl::write(int file, const DumpCause& cause) const noexcept {
    DumpText text(file);
    text << "Cause: " << cause.text << "\nTime: ";
    printTime(text, cause.time);
    printProgram(text, _build);
    char threadName[17] = {};
    prctl(PR_GET_NAME, threadName);
    text << "Process: " << std::int64_t{cause.processId} << "\nThread: " << std::int64_t{cause.threadId}
         << " (" << threadName << ")\n";
    const auto* context = static_cast<const ucontext_t*>(cause.context);
    if (context != nullptr) {
        printRegisters(text, *context);
    }
    printStack(text, _symbols, context);
    printMemoryMap(text);
    return text.finish();
}

}  // namespace windows::debug
