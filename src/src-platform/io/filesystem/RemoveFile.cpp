#include "io/filesystem/RemoveFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "io/filesystem/FileSystemHelper.h"
#include "util/FixedStream.h"

namespace io::filesystem {

namespace {

[[noreturn]] void fail(const std::string& name, int error) {
    util::FixedStream<4096> text;
    text << "Couldn't delete the file '" << name.c_str() << "' file using the 'DeleteFile' system call.\n";
    text.appendSystemError(static_cast<std::uint32_t>(error));
    throw RemoveFileException(text.str());
}

}  // namespace

void RemoveFileImpl::remove(const std::string& name) const {
    // First of all, so that a lack of descriptors fails before the file is gone.
    const ScopedDescriptor directory(openFile(directoryOf(name).c_str(), O_RDONLY | O_DIRECTORY));
    if (!directory.isOpen() || unlink(name.c_str()) != 0) {
        const int error = errno;
        if (error == ENOENT || error == ENOTDIR) {
            return;
        }
        fail(name, error);
    }
    if (const int error = synchroniseDirectory(directory.get())) {
        fail(name, error);
    }
}

}  // namespace io::filesystem
