#include "windows/services/ServiceAccount.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "io/filesystem/FileSystemHelper.h"
#include "util/FixedStream.h"

namespace windows::services {

namespace {

[[noreturn]] void fail(const char* what, const std::string& path, int error) {
    util::FixedStream<4096> text;
    text << what << " '" << path.c_str() << "'. ";
    throw ServiceAccountException(text.appendSystemError(static_cast<std::uint32_t>(error)).str());
}

}  // namespace

ServiceAccount ServiceAccount::ownerOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        fail("Could not find out who owns", path, errno);
    }
    return ServiceAccount(status.st_uid, status.st_gid);
}

std::string ServiceAccount::name() const {
    if (_user == 0) {
        return "";
    }
    passwd entry{};
    passwd* found = nullptr;
    char buffer[16384];
    getpwuid_r(_user, &entry, buffer, sizeof(buffer), &found);
    if (found == nullptr) {
        util::FixedStream<512> text;
        text << "The service can't run as the user with the number " << _user
             << ", because the manager takes only users with a name. Give the root directory of the "
                "classifiers to a user of this machine.";
        throw ServiceAccountException(text.str());
    }
    return found->pw_name;
}

void ServiceAccount::takeOver(const std::string& path) const {
    // A slash at the end would follow a link.
    const std::string name = path.substr(0, path.find_last_not_of('/') + 1);
    const io::filesystem::ScopedDescriptor file(
        io::filesystem::openFile(name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.isOpen() && (errno == ENOENT || errno == ELOOP)) {
        return;
    }
    struct stat status {};
    if (!file.isOpen() || fstat(file.get(), &status) != 0) {
        fail("Could not find out who owns", path, errno);
    }
    if (status.st_uid == _user || (!S_ISDIR(status.st_mode) && status.st_nlink > 1)) {
        return;
    }
    if (fchown(file.get(), _user, _group) != 0) {
        fail("Could not give the service's user", path, errno);
    }
}

}  // namespace windows::services
