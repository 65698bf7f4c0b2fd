#include "windows/file/Module.h"

#include <unistd.h>

#include <cerrno>
#include <climits>

#include "util/FixedStream.h"

namespace windows::file {

std::string ModuleImpl::fileName() const {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    if (length < 0) {
        const int error = errno;
        util::FixedStream<4096> text;
        text << "Could not get the module filename: ";
        text.appendSystemError(static_cast<std::uint32_t>(error));
        throw ModuleException(text.str());
    }
    return std::string(path, static_cast<std::size_t>(length));
}

}  // namespace windows::file
