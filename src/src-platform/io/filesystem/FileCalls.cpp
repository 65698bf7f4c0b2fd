#include "io/filesystem/FileCalls.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace io::filesystem {

ssize_t FileCallsImpl::readlink(const char* name, char* target, std::size_t size) const noexcept {
    return ::readlink(name, target, size);
}

int FileCallsImpl::stat(const char* name, struct stat& status) const noexcept {
    return ::stat(name, &status);
}

int FileCallsImpl::faccessat(const char* name) const noexcept {
    return ::faccessat(AT_FDCWD, name, W_OK, AT_EACCESS);
}

int FileCallsImpl::open(const char* name) const noexcept {
    return ::open(name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

int FileCallsImpl::openat(int directory, const char* name) const noexcept {
    return ::openat(directory, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
}

int FileCallsImpl::fchmod(int file, mode_t mode) const noexcept { return ::fchmod(file, mode); }

int FileCallsImpl::fallocate(int file, std::uint64_t size) const noexcept {
    return ::fallocate(file, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size));
}

ssize_t FileCallsImpl::writev(int file, std::span<const iovec> pieces) const noexcept {
    return ::writev(file, pieces.data(), static_cast<int>(pieces.size()));
}

int FileCallsImpl::fsync(int file) const noexcept { return ::fsync(file); }

int FileCallsImpl::renameat2(int directory, const char* from, const char* to, unsigned flags) const noexcept {
    return ::renameat2(directory, from, directory, to, flags);
}

int FileCallsImpl::unlinkat(int directory, const char* name) const noexcept {
    return ::unlinkat(directory, name, 0);
}

const FileCalls& systemCalls() {
    static const FileCallsImpl calls;
    return calls;
}

}  // namespace io::filesystem
