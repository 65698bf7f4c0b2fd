#include "windows/services/ServiceDispatcher.h"

#include <cerrno>
#include <cstdlib>

#include "platform/errorresources/SystemErrorText.h"
#include "util/MethodCaller.h"

namespace windows::services {

void ServiceDispatcherImpl::dispatch(ServiceMain& serviceMain) const {
    const std::string complaint = "Could not start service dispatcher using 'StartServiceCtrlDispatcher'. ";
    const char* address = std::getenv("NOTIFY_SOCKET");
    if (address == nullptr) {
        throw ServiceDispatcherException(complaint + platform::errorresources::systemErrorText(EDESTADDRREQ) +
                                         " The environment names no NOTIFY_SOCKET: the flag -scm is for the "
                                         "unit that -install makes. Serve "
                                         "on the console with -config alone.");
    }
    try {
        serviceMain.connect(address);
    } catch (const NotifySocketException& e) {
        throw ServiceDispatcherException(complaint + e.what());
    }
    const util::MethodCaller0 disconnect(serviceMain, &ServiceMain::disconnect);
    serviceMain.serviceMain();
}

}  // namespace windows::services
