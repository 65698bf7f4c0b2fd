#pragma once

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "support/TempDir.h"

namespace support {

// Plays the service manager: the socket that NOTIFY_SOCKET names while the object lives.
class NotifyReceiver {
public:
    explicit NotifyReceiver(bool abstractName = false)
        : _socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = _folder.file("notify");
        if (path.size() + 2 > sizeof(address.sun_path)) {
            throw std::runtime_error("The folder for temporary files has too long a name for a socket in it");
        }
        path.copy(address.sun_path + (abstractName ? 1 : 0), path.size());
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
        const timeval limit{.tv_sec = 60, .tv_usec = 0};
        ::setsockopt(_socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        if (::bind(_socket, reinterpret_cast<const sockaddr*>(&address), size) != 0) {
            throw std::runtime_error("No notify socket to be had");
        }
        ::setenv("NOTIFY_SOCKET", (abstractName ? "@" + path : path).c_str(), 1);
    }
    NotifyReceiver(const NotifyReceiver&) = delete;
    NotifyReceiver& operator=(const NotifyReceiver&) = delete;
    ~NotifyReceiver() {
        ::unsetenv("NOTIFY_SOCKET");
        ::close(_socket);
    }

    // The next report; "(none)" if none comes.
    std::string next() {
        char text[1024];
        const ssize_t size = ::recv(_socket, text, sizeof(text), 0);
        return size < 0 ? "(none)" : std::string(text, static_cast<std::size_t>(size));
    }

private:
    TempDir _folder;
    int _socket;
};

}  // namespace support
