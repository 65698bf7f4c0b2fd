#pragma once

#include "windows/services/ServiceMain.h"

namespace windows::services {

// The link between the manager that has started this process and the service in it.
class ServiceDispatcher {
public:
    virtual ~ServiceDispatcher() = default;

    // Connects the service to the manager, runs it, and returns when it has ended. Throws
    // ServiceDispatcherException in a process that the manager hasn't started.
    virtual void dispatch(ServiceMain& serviceMain) const = 0;
};

// systemd names its socket in the environment variable NOTIFY_SOCKET.
class ServiceDispatcherImpl final : public ServiceDispatcher {
public:
    void dispatch(ServiceMain& serviceMain) const override;
};

}  // namespace windows::services
