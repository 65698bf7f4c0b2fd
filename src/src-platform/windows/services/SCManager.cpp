#include "windows/services/SCManager.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "debug/Assertion.h"
#include "io/filesystem/FileSystemHelper.h"
#include "util/FixedStream.h"

namespace windows::services {

namespace {

class SCManagerExceptionImpl final : public exceptions::WithMessage<SCManagerException> {
public:
    using WithMessage::WithMessage;
};

[[noreturn]] void failOpening(int error, const char* advice) {
    util::FixedStream<4096> text;
    text << "Could not open Service Control Manager using 'OpenSCManager'. Host: (null). ";
    text.appendSystemError(static_cast<std::uint32_t>(error)) << " " << advice;
    throw SCManagerExceptionImpl(text.str());
}

}  // namespace

SCManagerImpl::SCManagerImpl(const ManagerFolders& folders, const ServiceTools& tools)
    : _unitFolder(folders.units), _tools(tools) {
    if (access(folders.running.c_str(), F_OK) != 0) {
        failOpening(errno,
                    "This machine isn't run by systemd, so the server can't be a service here. Serve on the "
                    "console with -config, and let whatever starts programs here run that.");
    }
    constexpr const char* RIGHTS =
        "Only the administrator of this machine may do this: run the command as root.";
    _handle = io::filesystem::openFile(_unitFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (_handle < 0) {
        failOpening(errno, RIGHTS);
    }
    if (faccessat(_handle, ".", W_OK, AT_EACCESS) != 0) {
        const int error = errno;
        ::close(_handle);
        failOpening(error, RIGHTS);
    }
}

SCManagerImpl::~SCManagerImpl() {
    if (_handle >= 0) {
        ::close(_handle);
    }
}

void SCManagerImpl::close() {
    if (_handle >= 0 && ::close(_handle) != 0) {
        const int error = errno;
        util::FixedStream<4096> text;
        text << "Could not close Service Control Manager handle using 'CloseServiceHandle'. Handle: "
             << _handle << ". ";
        _handle = -1;
        throw SCManagerExceptionImpl(text.appendSystemError(static_cast<std::uint32_t>(error)).str());
    }
    _handle = -1;
}

std::unique_ptr<Service> SCManagerImpl::openService(const std::string& name) const {
    CHECK(_handle >= 0);
    return std::make_unique<ServiceImpl>(_unitFolder, name, _tools);
}

std::unique_ptr<Service> SCManagerImpl::createService(const ServiceDefinition& definition) const {
    CHECK(_handle >= 0);
    return std::make_unique<ServiceImpl>(_unitFolder, definition, _tools);
}

std::unique_ptr<SCManager> SCManagerFactoryImpl::create() const {
    return std::make_unique<SCManagerImpl>(ManagerFolders(),
                                           ServiceTools{_systemctl, _loadFile, _saveFile, _removeFile});
}

}  // namespace windows::services
