#include "windows/services/NotifySocket.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "platform/errorresources/SystemErrorText.h"

namespace windows::services {

namespace {

// A manager that takes no datagram for so long won't take the next one either.
constexpr timeval SEND_LIMIT{.tv_sec = 5, .tv_usec = 0};

[[noreturn]] void fail(int error) {
    throw NotifySocketException(platform::errorresources::systemErrorText(static_cast<std::uint32_t>(error)));
}

}  // namespace

NotifySocket::NotifySocket(const std::string& address)
    : _socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    if (_socket < 0) {
        fail(errno);
    }
    sockaddr_un peer{};
    peer.sun_family = AF_UNIX;
    int error = 0;
    if (!address.starts_with('/') && !address.starts_with('@')) {
        error = EAFNOSUPPORT;
    } else if (address.size() >= sizeof(peer.sun_path)) {
        error = ENAMETOOLONG;
    } else {
        std::memcpy(peer.sun_path, address.data(), address.size());
        if (address.front() == '@') {
            peer.sun_path[0] = 0;
        }
        // An abstract name ends with the address, a path with its zero.
        const std::size_t size =
            offsetof(sockaddr_un, sun_path) + address.size() + (address.front() == '/' ? 1 : 0);
        setsockopt(_socket, SOL_SOCKET, SO_SNDTIMEO, &SEND_LIMIT, sizeof(SEND_LIMIT));
        if (connect(_socket, reinterpret_cast<const sockaddr*>(&peer), static_cast<socklen_t>(size)) != 0) {
            error = errno;
        }
    }
    if (error != 0) {
        close(_socket);
        fail(error);
    }
}

NotifySocket::~NotifySocket() { close(_socket); }

void NotifySocket::send(const std::string& assignments) const {
    while (::send(_socket, assignments.data(), assignments.size(), MSG_NOSIGNAL) < 0) {
        if (errno != EINTR) {
            fail(errno);
        }
    }
}

}  // namespace windows::services
