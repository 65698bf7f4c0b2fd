#include "io/filesystem/SizeFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "io/filesystem/FileSystemHelper.h"
#include "util/FixedStream.h"

namespace io::filesystem {

namespace {

[[noreturn]] void fail(const char* what, const std::string& name, const char* how, int error) {
    util::FixedStream<4096> text;
    text << what << name.c_str() << how;
    text.appendSystemError(static_cast<std::uint32_t>(error));
    throw SizeFileException(text.str());
}

[[noreturn]] void failOpening(const std::string& name, int error) {
    fail("Failed to open '", name, "' while getting file size.\n", error);
}

}  // namespace

std::uint64_t SizeFileImpl::size(const std::string& name, bool mustExist) const {
    // O_PATH asks for no access to the content, so that nobody's use of the file stands in the way.
    const ScopedDescriptor file(openFile(name.c_str(), O_PATH));
    if (!file.isOpen()) {
        const int error = errno;
        if (!mustExist && (error == ENOENT || error == ENOTDIR)) {
            return 0;
        }
        failOpening(name, error);
    }
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        fail("Failed to get file size for '", name, "' using 'GetFileSizeEx'.\n", errno);
    }
    if (S_ISDIR(status.st_mode)) {
        failOpening(name, EISDIR);
    }
    return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace io::filesystem
