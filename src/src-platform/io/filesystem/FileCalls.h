#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace io::filesystem {

// The system calls that replace a file. Each does one call, gives what that gives, and leaves errno: whoever
// puts another object in their place decides which of them fails, and how. Safe from any thread.
class FileCalls {
public:
    virtual ~FileCalls() = default;

    virtual ssize_t readlink(const char* name, char* target, std::size_t size) const noexcept = 0;
    virtual int stat(const char* name, struct stat& status) const noexcept = 0;
    // Asks for the right to write, as the user that the process runs as.
    virtual int faccessat(const char* name) const noexcept = 0;
    // Opens a directory for reading.
    virtual int open(const char* name) const noexcept = 0;
    // Creates a file that must not exist yet, for writing.
    virtual int openat(int directory, const char* name) const noexcept = 0;
    virtual int fchmod(int file, mode_t mode) const noexcept = 0;
    // Reserves disk for so many bytes, without making the file longer.
    virtual int fallocate(int file, std::uint64_t size) const noexcept = 0;
    virtual ssize_t writev(int file, std::span<const iovec> pieces) const noexcept = 0;
    virtual int fsync(int file) const noexcept = 0;
    // Both names are in the directory. The flags are those of renameat2(2).
    virtual int renameat2(int directory, const char* from, const char* to, unsigned flags) const noexcept = 0;
    virtual int unlinkat(int directory, const char* name) const noexcept = 0;
};

class FileCallsImpl final : public FileCalls {
public:
    ssize_t readlink(const char* name, char* target, std::size_t size) const noexcept override;
    int stat(const char* name, struct stat& status) const noexcept override;
    int faccessat(const char* name) const noexcept override;
    int open(const char* name) const noexcept override;
    int openat(int directory, const char* name) const noexcept override;
    int fchmod(int file, mode_t mode) const noexcept override;
    int fallocate(int file, std::uint64_t size) const noexcept override;
    ssize_t writev(int file, std::span<const iovec> pieces) const noexcept override;
    int fsync(int file) const noexcept override;
    int renameat2(int directory, const char* from, const char* to, unsigned flags) const noexcept override;
    int unlinkat(int directory, const char* name) const noexcept override;
};

// The calls of the system itself.
const FileCalls& systemCalls();

}  // namespace io::filesystem
