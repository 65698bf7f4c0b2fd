#include "windows/file/DiskSpace.h"

#include <sys/statvfs.h>

#include <cerrno>

#include "util/FixedStream.h"

namespace windows::file {

std::uint64_t DiskSpaceImpl::free(const std::string& directory) const {
    struct statvfs status {};
    int result = 0;
    do {
        result = statvfs(directory.c_str(), &status);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        const int error = errno;
        util::FixedStream<4096> text;
        text << "Could not get the amount of free disk space for the directory " << directory.c_str()
             << "\n\n";
        text.appendSystemError(static_cast<std::uint32_t>(error));
        throw DiskSpaceException(text.str());
    }
    return static_cast<std::uint64_t>(status.f_bavail) * status.f_frsize;
}

}  // namespace windows::file
