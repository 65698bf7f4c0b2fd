#include "windows/file/DeleteFile.h"

#include <unistd.h>

#include <cerrno>

#include "util/FixedStream.h"

namespace windows::file {

void DeleteFileImpl::remove(const std::string& name, bool mustExist) const {
    if (unlink(name.c_str()) == 0) {
        return;
    }
    const int error = errno;
    if (!mustExist && (error == ENOENT || error == ENOTDIR)) {
        return;
    }
    const bool denied = error == EACCES || error == EPERM;
    util::FixedStream<4096> text;
    text << (denied ? "Access was denied when trying to delete the file: " : "Couldn't delete the file: ")
         << name.c_str() << "\n";
    text.appendSystemError(static_cast<std::uint32_t>(error));
    if (denied) {
        throw DeleteFileAccessDeniedException(text.str());
    }
    throw DeleteFileExceptionImpl(text.str());
}

}  // namespace windows::file
