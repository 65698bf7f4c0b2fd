#pragma once

#include <sys/types.h>

#include <cstdint>

struct backtrace_state;

namespace windows::debug {

// What a dump is about.
struct DumpCause {
    const char* text;   // one line for the reader
    std::int64_t time;  // seconds since 1970
    pid_t processId;
    pid_t threadId;
    const void* context;  // the ucontext_t of a signal; null for a dump that a thread writes about itself

    static DumpCause ofCallingThread(const char* text);
};

// The writer of the dump itself, a text of less than 256 KiB: cause, time, build, thread, registers where a
// signal has left them, stack with symbols, memory map.
class MiniDump {
public:
    virtual ~MiniDump() = default;

    // Writes the dump to an open file. Gives 0, or the system's error. Safe from any thread.
    // With a context it takes no lock and no heap memory, because the stopped code may hold any of them; the
    // names of functions then stand as the compiler wrote them.
    virtual int write(int file, const DumpCause& cause) const noexcept = 0;
};

class MiniDumpImpl final : public MiniDump {
public:
    // build names the program and its version, and must outlive the object. Reads the debug data of the
    // program, so that a dump later needs nothing but memory.
    explicit MiniDumpImpl(const char* build);

    int write(int file, const DumpCause& cause) const noexcept override;

private:
    const char* const _build;
    backtrace_state* const
        _symbols;  // one for the process, which never gives it back; null if there are none
};

}  // namespace windows::debug
