#include "io/filesystem/ExistsFile.h"

#include <sys/stat.h>

#include <cerrno>

namespace io::filesystem {

bool ExistsFileImpl::exists(const std::string& name) const noexcept {
    struct stat status {};
    if (stat(name.c_str(), &status) == 0) {
        return !S_ISDIR(status.st_mode);
    }
    switch (errno) {
        case ENOENT:
        case ENOTDIR:
        case ENAMETOOLONG:
        case EINVAL:
        case ELOOP:
        case ENXIO:
        case ENODEV:
        case ENOMEDIUM:
            return false;
        default:
            return true;
    }
}

}  // namespace io::filesystem
