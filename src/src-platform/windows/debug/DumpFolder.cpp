#include "windows/debug/DumpFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "io/filesystem/FileSystemHelper.h"

namespace windows::debug {

namespace {

bool isDump(const char* name) {
    const std::size_t length = std::strlen(name);
    return length > 4 && std::strcmp(name + length - 4, ".dmp") == 0;
}

// Not readdir, which keeps its buffer on the heap.
std::uint64_t countDumps(const char* folder) {
    const io::filesystem::ScopedDescriptor directory(
        io::filesystem::openFile(folder, O_RDONLY | O_DIRECTORY));
    std::uint64_t dumps = 0;
    alignas(dirent64) char entries[4096];
    ssize_t size = 0;
    while (directory.isOpen() && (size = getdents64(directory.get(), entries, sizeof(entries))) > 0) {
        for (ssize_t position = 0; position < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(entries + position);
            dumps += isDump(entry->d_name) ? 1 : 0;
            position += entry->d_reclen;
        }
    }
    return dumps;
}

}  // namespace

util::FixedStream<4096> dumpRefusal(const char* folder) noexcept {
    struct statvfs status {};
    const bool known = statvfs(folder, &status) == 0;
    return dumpRefusal(folder, countDumps(folder),
                       known ? std::uint64_t{status.f_bavail} * status.f_frsize : UINT64_MAX);
}

util::FixedStream<4096> dumpRefusal(const char* folder, std::uint64_t dumps,
                                    std::uint64_t freeBytes) noexcept {
    util::FixedStream<4096> text;
    if (dumps >= MAX_DUMPS) {
        text << "The directory '" << folder << "' already holds " << dumps
             << " dumps. Move them away to get new ones.";
    } else if (freeBytes < MIN_FREE_BYTES) {
        text << "The disk of the directory '" << folder << "' has only " << freeBytes
             << " bytes left, which is too little for a dump.";
    }
    return text;
}

int openDump(const char* path) noexcept {
    // Not for others to read: a dump shows addresses. And never through a link or into a device, since what
    // is opened here is emptied, and deleted when the dump fails.
    const int file = io::filesystem::openFile(
        path, O_WRONLY | O_CREAT | O_TRUNC | O_DSYNC | O_NOFOLLOW | O_NONBLOCK, 0640);
    struct stat status {};
    if (file >= 0 && (fstat(file, &status) != 0 || !S_ISREG(status.st_mode))) {
        close(file);
        errno = EINVAL;
        return -1;
    }
    return file;
}

}  // namespace windows::debug
