#include "windows/file/CreateFolder.h"

#include <sys/stat.h>

#include <cerrno>

#include "util/FixedStream.h"

namespace windows::file {

void CreateFolderImpl::create(const std::string& name, bool mustNotExist) const {
    if (mkdir(name.c_str(), 0777) == 0) {
        return;
    }
    const int error = errno;
    if (error == EEXIST && !mustNotExist) {
        return;
    }
    util::FixedStream<4096> text;
    text << "Could not create the directory: " << name.c_str() << ".\n\n";
    text.appendSystemError(static_cast<std::uint32_t>(error));
    throw CreateFolderException(text.str());
}

}  // namespace windows::file
