#include "windows/services/ServiceMain.h"

#include <cerrno>

#include "platform/errorresources/SystemErrorText.h"

namespace windows::services {

namespace {

std::string reportOf(const std::string& name, ServiceState state, std::uint32_t exitCode) {
    switch (state) {
        case ServiceState::START_PENDING:
            return "STATUS=" + name + " is starting.";
        case ServiceState::RUNNING:
            return "READY=1\nSTATUS=" + name + " is running.";
        case ServiceState::STOP_PENDING:
            return "STOPPING=1\nSTATUS=" + name + " is stopping.";
        case ServiceState::STOPPED:
            break;
    }
    // The manager learns the code itself from the end of the process.
    return "STATUS=" + name + " has stopped with exit code " + std::to_string(exitCode) + ".";
}

std::string notConnected() { return platform::errorresources::systemErrorText(ENOTCONN); }

}  // namespace

void ServiceMain::setStatus(ServiceState state, std::uint32_t exitCode) {
    const std::lock_guard lock(_mutex);
    _status.state = state;
    _status.exitCode = exitCode;
    constexpr const char* COMPLAINT = "Failed setting service status using 'SetServiceStatus'. ";
    if (_status.handle == nullptr) {
        throw ServiceMainException(COMPLAINT + notConnected());
    }
    try {
        _status.handle->send(reportOf(getServiceName(), state, exitCode));
    } catch (const NotifySocketException& e) {
        throw ServiceMainException(std::string(COMPLAINT) + e.what());
    }
}

void ServiceMain::registerHandler() {
    const std::lock_guard lock(_mutex);
    const std::string complaint =
        "Failed registering a service control handler using 'RegisterServiceCtrlHandlerEx'. ";
    if (_status.handle == nullptr) {
        throw ServiceMainException(complaint + notConnected());
    }
    try {
        _signals = std::make_unique<platform::StopSignals>([this] { handler(serviceControl::STOP); });
    } catch (const exceptions::Exception& e) {
        throw ServiceMainException(complaint + e.what());
    }
}

std::uint32_t ServiceMain::exitCode() const {
    const std::lock_guard lock(_mutex);
    return _status.exitCode;
}

ServiceState ServiceMain::state() const {
    const std::lock_guard lock(_mutex);
    return _status.state;
}

void ServiceMain::connect(const std::string& notifyAddress) {
    auto handle = std::make_unique<NotifySocket>(notifyAddress);
    const std::lock_guard lock(_mutex);
    _status.handle = std::move(handle);
}

void ServiceMain::disconnect() {
    // Not under the lock: a handler that is at work is waited for, and it takes the lock to report.
    _signals.reset();
    const std::lock_guard lock(_mutex);
    _status.handle.reset();
}

}  // namespace windows::services
