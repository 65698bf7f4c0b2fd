#include "io/filesystem/ExistsDir.h"

#include <sys/stat.h>

#include <cerrno>

#include "util/FixedStream.h"

namespace io::filesystem {

bool ExistsDirImpl::exists(const std::string& name) const {
    struct stat status {};
    if (stat(name.c_str(), &status) == 0) {
        return S_ISDIR(status.st_mode);
    }
    const int error = errno;
    if (error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG || error == EINVAL) {
        return false;
    }
    util::FixedStream<4096> text;
    text << "An error occured when checking if the directory \" " << name.c_str() << "\" exists. ";
    text.appendSystemError(static_cast<std::uint32_t>(error));
    throw ExistsDirException(text.str());
}

}  // namespace io::filesystem
