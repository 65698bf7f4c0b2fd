#pragma once

#include <cstdint>

#include "util/FixedStream.h"

namespace windows::debug {

inline constexpr std::uint64_t MAX_DUMPS = 100;
inline constexpr std::uint64_t MIN_FREE_BYTES = 1000000000;

// Why the folder must not get another dump; an empty text if nothing stands against it. An error that a
// client can provoke must not fill a disk. A folder that cannot be looked at is not refused, since opening
// the file in it tells more. Takes no lock and no heap memory, for use in a signal handler.
util::FixedStream<4096> dumpRefusal(const char* folder) noexcept;

// The same from the figures: the dumps in the folder, and the bytes that are free on its disk.
util::FixedStream<4096> dumpRefusal(const char* folder, std::uint64_t dumps,
                                    std::uint64_t freeBytes) noexcept;

// Opens the file of a dump for writing, a new one or one that it empties. Gives -1 and errno on failure, also
// for a name that stands for anything but a plain file. Takes no lock and no heap memory.
int openDump(const char* path) noexcept;

}  // namespace windows::debug
