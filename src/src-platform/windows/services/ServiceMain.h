#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "platform/StopSignals.h"
#include "windows/services/NotifySocket.h"
#include "windows/services/ServiceExceptions.h"

namespace windows::services {

enum class ServiceState : std::uint32_t { STOPPED = 1, START_PENDING = 2, STOP_PENDING = 3, RUNNING = 4 };

namespace serviceControl {
inline constexpr std::uint32_t STOP = 1;
inline constexpr std::uint32_t INTERROGATE = 4;
// What a handler returns for a control that it doesn't know.
inline constexpr std::uint32_t NOT_IMPLEMENTED = 120;
}  // namespace serviceControl

// A program that runs as a service. The dispatcher calls serviceMain, which registers the handler first, then
// reports start pending, running as soon as it serves, and stopped.
class ServiceMain {
public:
    virtual ~ServiceMain() = default;

    virtual std::string getServiceName() const = 0;

    // The whole life of the service, on the thread of the dispatcher.
    virtual void serviceMain() = 0;

    // Obeys the manager, on a thread of its own. Gives 0 or NOT_IMPLEMENTED, and throws nothing.
    virtual std::uint32_t handler(std::uint32_t control) = 0;

    // Reports to the manager; any thread may. The state and the exit code are kept also when that fails.
    // Throws ServiceMainException.
    virtual void setStatus(ServiceState state, std::uint32_t exitCode = 0);

    // From here on SIGTERM, which is how systemd asks for the stop, calls the handler. To be called before
    // there are other threads, as StopSignals asks for. Throws ServiceMainException in a process that no
    // dispatcher has connected to the manager.
    virtual void registerHandler();

    // The code that was reported with the last state.
    std::uint32_t exitCode() const;

protected:
    // The last state reported.
    ServiceState state() const;

private:
    friend class ServiceDispatcherImpl;

    // Between the two the service is connected to the manager. After the second no handler runs any more.
    void connect(const std::string& notifyAddress);
    void disconnect();

    struct Status {
        std::unique_ptr<NotifySocket> handle;
        ServiceState state = ServiceState::STOPPED;
        std::uint32_t exitCode = 0;
    };

    mutable std::mutex _mutex;  // held while a report is sent, so that reports keep their order
    Status _status;             // guarded by _mutex
    std::unique_ptr<platform::StopSignals> _signals;
};

}  // namespace windows::services
