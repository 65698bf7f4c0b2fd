#pragma once

#include <string>

#include "exceptions/Exception.h"

namespace windows::services {

// The message is the system's own words alone, for others to put behind theirs.
class NotifySocketException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

// The way from a service to systemd: datagrams to a local socket (sd_notify(3)). Safe from any thread.
class NotifySocket {
public:
    // The address is that of NOTIFY_SOCKET: a full path, or an abstract name with '@' in front. Throws
    // NotifySocketException if nobody listens there.
    explicit NotifySocket(const std::string& address);
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;
    ~NotifySocket();

    // Sends assignments such as "READY=1", one a line. Waits some seconds at most. Throws
    // NotifySocketException.
    void send(const std::string& assignments) const;

private:
    int _socket;
};

}  // namespace windows::services
