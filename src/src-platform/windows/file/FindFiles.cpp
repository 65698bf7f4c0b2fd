#include "windows/file/FindFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <memory>
#include <sstream>

#include "debug/Assertion.h"
#include "util/FixedStream.h"

namespace windows::file {

namespace {

constexpr std::size_t MAX_PATH = PATH_MAX;

[[noreturn]] void fail(const char* when, const std::string& directory, int error) {
    util::FixedStream<4096> text;
    text << "Error when trying to get first level directories. \nThe error occured when " << when
         << " Initial directory: " << directory.c_str() << "\n\n";
    text.appendSystemError(static_cast<std::uint32_t>(error));
    throw FindFilesException(text.str());
}

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};

std::uint32_t attributesOf(DIR* directory, const char* name) {
    struct stat status {};
    // A link to nowhere and a file that is gone by now are no directories.
    const bool isDirectory = fstatat(dirfd(directory), name, &status, 0) == 0 && S_ISDIR(status.st_mode);
    return (isDirectory ? FindFiles::DIRECTORY : FindFiles::FILE) | (name[0] == '.' ? FindFiles::HIDDEN : 0);
}

}  // namespace

std::vector<std::string> FindFilesImpl::find(const std::string& initialDirectory, const std::string& masks,
                                             std::uint32_t attributes,
                                             const std::vector<std::string>& excludes, bool filesOnly) const {
    CHECK(initialDirectory != "");
    const std::string prefix = initialDirectory.back() == '/' ? initialDirectory : initialDirectory + "/";
    std::vector<std::string> found;
    std::istringstream list(masks);
    for (std::string mask; std::getline(list, mask, ';');) {
        CHECK(mask.size() <= MAX_PATH);
        const std::unique_ptr<DIR, DirectoryCloser> directory(opendir(prefix.c_str()));
        if (!directory) {
            fail("opening a find file handle.", initialDirectory, errno);
        }
        while (true) {
            errno = 0;
            const dirent* entry = readdir(directory.get());
            if (entry == nullptr) {
                if (errno != 0) {
                    fail("getting the next file.", initialDirectory, errno);
                }
                break;
            }
            if (fnmatch(mask.c_str(), entry->d_name, FNM_NOESCAPE) != 0 ||
                std::find(excludes.begin(), excludes.end(), entry->d_name) != excludes.end()) {
                continue;
            }
            const std::uint32_t has = attributesOf(directory.get(), entry->d_name);
            if ((has & attributes) != 0 && !(filesOnly && (has & DIRECTORY) != 0)) {
                found.push_back(prefix + entry->d_name);
            }
        }
    }
    return found;
}

std::vector<std::string> FileEnumeratorImpl::enumerate(const std::string& directory,
                                                       const std::string& masks) const {
    try {
        return FindFilesImpl().find(directory, masks, FindFiles::ALL, {}, true);
    } catch (const FindFilesException& e) {
        throw FileEnumeratorException(e.what());
    }
}

}  // namespace windows::file
