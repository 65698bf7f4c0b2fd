#include "windows/debug/DumpName.h"

#include <unistd.h>

#include <ctime>

namespace windows::debug {

util::FixedStream<128> dumpName() { return dumpName(gettid(), std::time(nullptr)); }

util::FixedStream<128> dumpName(pid_t threadId, std::int64_t time) {
    util::FixedStream<128> name;
    name << "dump_threadid_" << threadId << "_time_" << time << ".dmp";
    return name;
}

}  // namespace windows::debug
