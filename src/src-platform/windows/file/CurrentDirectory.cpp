#include "windows/file/CurrentDirectory.h"

#include <unistd.h>

#include <cerrno>
#include <climits>

#include "util/FixedStream.h"

namespace windows::file {

void CurrentDirectoryImpl::set(const std::string& name) const {
    if (chdir(name.c_str()) != 0) {
        const int error = errno;
        util::FixedStream<4096> text;
        text << "Could not set the directory, " << name.c_str() << ", to the current directory.\n\n";
        text.appendSystemError(static_cast<std::uint32_t>(error));
        throw SetCurrentDirectoryException(text.str());
    }
}

std::string CurrentDirectoryImpl::get() const {
    char path[PATH_MAX];
    if (getcwd(path, sizeof(path)) == nullptr) {
        const int error = errno;
        util::FixedStream<4096> text;
        text << "Couldn't get the current directory.\n\n ";
        text.appendSystemError(static_cast<std::uint32_t>(error));
        throw GetCurrentDirectoryException(text.str());
    }
    std::string directory = path;
    if (directory.back() != '/') {
        directory += '/';
    }
    return directory;
}

}  // namespace windows::file
