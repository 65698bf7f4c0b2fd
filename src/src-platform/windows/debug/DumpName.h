#pragma once

#include <sys/types.h>

#include <cstdint>

#include "util/FixedStream.h"

namespace windows::debug {

// The file name of a dump of the calling thread: "dump_threadid_3042_time_1794153225.dmp". Two dumps of one
// thread within a second share a name, and the later one replaces the earlier.
util::FixedStream<128> dumpName();

// The same for a given thread and time in seconds since 1970.
util::FixedStream<128> dumpName(pid_t threadId, std::int64_t time);

}  // namespace windows::debug
