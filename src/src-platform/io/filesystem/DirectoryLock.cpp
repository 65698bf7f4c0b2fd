#include "io/filesystem/DirectoryLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "util/FixedStream.h"

namespace io::filesystem {

DirectoryLock::DirectoryLock(const std::string& directory)
    : _descriptor(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (_descriptor < 0) {
        const int error = errno;
        util::FixedStream<4096> text;
        text << "Could not open the directory '" << directory.c_str() << "' to lock it for this process. ";
        throw DirectoryLockException(text.appendSystemError(static_cast<std::uint32_t>(error)).str());
    }
    if (flock(_descriptor, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        close(_descriptor);
        util::FixedStream<4096> text;
        if (error == EWOULDBLOCK) {
            text << "The directory '" << directory.c_str()
                 << "' is in use by another server. Stop that server, or give this one a directory of its "
                    "own.";
            throw DirectoryLockException(text.str());
        }
        text << "Could not lock the directory '" << directory.c_str() << "' for this process. ";
        throw DirectoryLockException(text.appendSystemError(static_cast<std::uint32_t>(error)).str());
    }
}

DirectoryLock::~DirectoryLock() { close(_descriptor); }

}  // namespace io::filesystem
