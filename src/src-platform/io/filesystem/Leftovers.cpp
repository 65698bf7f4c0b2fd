#include "io/filesystem/Leftovers.h"

#include "io/filesystem/FileSystemHelper.h"
#include "io/filesystem/RemoveFile.h"
#include "windows/file/FindFiles.h"

namespace io::filesystem {

std::uint64_t removeLeftovers(const std::string& directory) {
    const RemoveFileImpl removeFile;
    std::uint64_t removed = 0;
    for (const std::string& name :
         windows::file::FileEnumeratorImpl().enumerate(directory, UNFINISHED_SAVE_MASK)) {
        removeFile.remove(name);
        ++removed;
    }
    return removed;
}

}  // namespace io::filesystem
