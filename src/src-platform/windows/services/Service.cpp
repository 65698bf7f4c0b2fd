#include "windows/services/Service.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "debug/Assertion.h"
#include "io/filesystem/FileSystemHelper.h"
#include "util/FixedStream.h"

namespace windows::services {

namespace {

constexpr const char* CREATE = "Error creating new service using the 'CreateService' system call. ";
constexpr const char* START = "Could not start service using the 'StartService' system call. ";
constexpr const char* STOP = "Could not stop service using the 'ControlService' system call. ";
constexpr const char* DESCRIBE = "Could not set service description using 'ChangeServiceConfig2'. ";
constexpr const char* REMOVE = "Could not delete service using 'DeleteService'. ";

class ServiceExceptionImpl final : public exceptions::WithMessage<ServiceException> {
public:
    using WithMessage::WithMessage;
};

util::Bytes bytesOf(const std::string& text) { return util::Bytes(text.begin(), text.end()); }

}  // namespace

ServiceImpl::ServiceImpl(const std::string& unitFolder, const std::string& name, const ServiceTools& tools)
    : _unit(UnitFile::nameOf(name)), _path(unitFolder + "/" + _unit), _tools(tools) {
    open(name);
}

ServiceImpl::ServiceImpl(const std::string& unitFolder, const ServiceDefinition& definition,
                         const ServiceTools& tools)
    : _unit(UnitFile::nameOf(definition.name)), _path(unitFolder + "/" + _unit), _tools(tools) {
    create(definition);
    open(definition.name);
}

ServiceImpl::~ServiceImpl() {
    if (_serviceHandle >= 0) {
        ::close(_serviceHandle);
    }
}

void ServiceImpl::open(const std::string& name) {
    _serviceHandle = io::filesystem::openFile(_path.c_str(), O_PATH | O_CLOEXEC);
    if (_serviceHandle < 0) {
        const int error = errno;
        util::FixedStream<4096> text;
        text << "Error opening the '" << name.c_str() << " 'using the 'OpenService' system call. ";
        text.appendSystemError(static_cast<std::uint32_t>(error));
        if (error == ENOENT) {
            throw ServiceDoesNotExistsException(text.str());
        }
        throw ServiceExceptionImpl(text.str());
    }
}

void ServiceImpl::create(const ServiceDefinition& definition) {
    if (faccessat(AT_FDCWD, _path.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
        util::FixedStream<4096> text;
        text << CREATE;
        throw ServiceAlreadyExistsException(text.appendSystemError(EEXIST).str());
    }
    try {
        _tools.saveFile.save(_path, bytesOf(UnitFile::textOf(definition)));
    } catch (const exceptions::Exception& e) {
        throw ServiceExceptionImpl(std::string(CREATE) + e.what());
    }
    try {
        command({"enable", _unit}, CREATE);
    } catch (...) {
        undoCreation();
        throw;
    }
}

void ServiceImpl::undoCreation() const noexcept {
    try {
        _tools.removeFile.remove(_path);
        _tools.systemctl.run({"daemon-reload"});
    } catch (...) {
        // The failure that brought us here is the one to tell.
    }
}

void ServiceImpl::close() {
    if (_serviceHandle >= 0 && ::close(_serviceHandle) != 0) {
        const int error = errno;
        util::FixedStream<4096> text;
        text << "Could not close service handle using 'CloseServiceHandle'. Handle: " << _serviceHandle
             << ". ";
        _serviceHandle = -1;
        throw ServiceExceptionImpl(text.appendSystemError(static_cast<std::uint32_t>(error)).str());
    }
    _serviceHandle = -1;
}

void ServiceImpl::start() {
    CHECK(_serviceHandle >= 0);
    // A service that has been given up after failed starts would be refused its next tries for a while,
    // though somebody who asks has usually repaired it.
    forgetFailures();
    command({"--no-block", "start", _unit}, START);
}

void ServiceImpl::stop() {
    CHECK(_serviceHandle >= 0);
    command({"--no-block", "stop", _unit}, STOP);
}

void ServiceImpl::setDescription(const char* text) {
    CHECK(_serviceHandle >= 0);
    if (text == nullptr) {
        throw ServiceExceptionImpl("description sent to ServiceImpl::setDescription is NULL.");
    }
    try {
        const util::Bytes unit = _tools.loadFile.load(_path);
        _tools.saveFile.save(_path,
                             bytesOf(UnitFile::withDescription(std::string(unit.begin(), unit.end()), text)));
    } catch (const exceptions::Exception& e) {
        throw ServiceExceptionImpl(std::string(DESCRIBE) + e.what());
    }
    command({"daemon-reload"}, DESCRIBE);
}

void ServiceImpl::remove() {
    CHECK(_serviceHandle >= 0);
    // First the links, which the manager finds through the file.
    command({"disable", _unit}, REMOVE);
    try {
        _tools.removeFile.remove(_path);
    } catch (const exceptions::Exception& e) {
        throw ServiceExceptionImpl(std::string(REMOVE) + e.what());
    }
    command({"daemon-reload"}, REMOVE);
    // The manager keeps the memory of a failed one, and lists it.
    forgetFailures();
}

// To have nothing to forget is a failure to the tool, but none to us.
void ServiceImpl::forgetFailures() const { _tools.systemctl.run({"reset-failed", _unit}); }

void ServiceImpl::command(const std::vector<std::string>& arguments, const char* complaint) const {
    // Nobody may be there to type a password.
    std::vector<std::string> words{"--no-ask-password"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const Systemctl::Result result = _tools.systemctl.run(words);
    if (result.exitCode != 0) {
        throw ServiceExceptionImpl(complaint + errorText(result));
    }
}

}  // namespace windows::services
