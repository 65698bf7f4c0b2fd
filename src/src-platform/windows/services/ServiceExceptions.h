#pragma once

#include "exceptions/Exception.h"

namespace windows::services {

// The service manager cannot be reached, or doesn't take orders from this user.
class SCManagerException : public exceptions::Exception {};

// An operation on one service has failed.
class ServiceException : public exceptions::Exception {};

class ServiceDoesNotExistsException final : public exceptions::WithMessage<ServiceException> {
public:
    using WithMessage::WithMessage;
};

class ServiceAlreadyExistsException final : public exceptions::WithMessage<ServiceException> {
public:
    using WithMessage::WithMessage;
};

// The process has not been started by the service manager.
class ServiceDispatcherException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

// A running service cannot talk to the manager.
class ServiceMainException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

}  // namespace windows::services
