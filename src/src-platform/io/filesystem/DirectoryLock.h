#pragma once

#include <string>

#include "io/IOException.h"

namespace io::filesystem {

// The directory is in another process's hands, or cannot be opened.
class DirectoryLockException final : public exceptions::WithMessage<IOException> {
public:
    using WithMessage::WithMessage;
};

// Keeps a directory for this process alone, for as long as the object lives.
//
// The lock is an flock(2) on the directory itself: it leaves no file behind, and a process that dies gives it
// back. It binds only those who ask for it; reading, copying and backing up the files stays possible.
class DirectoryLock {
public:
    // Throws DirectoryLockException if another holder, in this process or elsewhere, has the directory.
    explicit DirectoryLock(const std::string& directory);
    ~DirectoryLock();
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;

private:
    int _descriptor;
};

}  // namespace io::filesystem
