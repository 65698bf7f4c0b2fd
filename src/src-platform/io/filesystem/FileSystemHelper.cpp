#include "io/filesystem/FileSystemHelper.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "util/FixedStream.h"
#include "windows/file/CurrentDirectory.h"

namespace io::filesystem {

namespace {

std::string currentDirectory() {
    try {
        return windows::file::CurrentDirectoryImpl().get();
    } catch (const exceptions::Exception& e) {
        return std::string("Couldn't get the current directory. Exception: ") + e.what();
    }
}

}  // namespace

ScopedDescriptor::~ScopedDescriptor() {
    if (isOpen()) {
        close(_descriptor);
    }
}

int openFile(const char* name, int flags, unsigned mode) noexcept {
    int descriptor = -1;
    do {
        descriptor = open(name, flags | O_CLOEXEC, mode);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

int writeAll(int file, const char* bytes, std::size_t size) noexcept {
    while (size > 0) {
        const ssize_t count = write(file, bytes, size);
        if (count >= 0) {
            bytes += count;
            size -= static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

std::string directoryOf(const std::string& name) {
    const std::size_t slash = name.rfind('/');
    return slash == std::string::npos ? "." : name.substr(0, slash + 1);
}

int synchroniseDirectory(int directory) {
    // File systems that keep no order to lose say EINVAL.
    return fsync(directory) == 0 || errno == EINVAL ? 0 : errno;
}

std::string fileErrorText(const char* message, const std::string& name, int systemError, const char* cause) {
    util::FixedStream<4096> text;
    text << message << "\nFilename: '" << name.c_str() << "'. \nCurrent Working Directory: '"
         << currentDirectory().c_str() << "'.\n";
    text.appendSystemError(static_cast<std::uint32_t>(systemError));
    text << "\nC++ exception: " << cause;
    return text.str();
}

}  // namespace io::filesystem
