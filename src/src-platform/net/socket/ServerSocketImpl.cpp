#include "net/socket/ServerSocketImpl.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "net/socket/SocketException.h"
#include "util/FixedStream.h"

namespace net::socket {

ServerSocketImpl::ServerSocketImpl(const platform::errorresources::ErrorMapper& errorMapper,
                                   const SocketStreamFactory& streamFactory, std::uint16_t port,
                                   std::uint32_t queue)
    : _errorMapper(errorMapper),
      _streamFactory(streamFactory),
      _port(port),
      _queue(queue),
      _socketCloser(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), errorMapper) {
    const int descriptor = _socketCloser.get();
    if (descriptor == -1) {
        fail<InitException>("Error creating socket with the socket() call. ", errno);
    }
    // Lets a restarted server have its port while connections of the one before are still in TIME_WAIT.
    const int yes = 1;
    if (setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes)) == -1) {
        fail<ChangeStateException>("Error making socket reusable using setsockopt(). ", errno);
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    socklen_t size = sizeof(address);
    if (bind(descriptor, reinterpret_cast<sockaddr*>(&address), size) == -1 ||
        getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == -1) {
        fail<InitException>("Could not bind the socket. Failed using the bind system call. ", errno);
    }
    _port = ntohs(address.sin_port);
    if (queue > 2147483647) {
        throw PreconditionException("The queue number is too large. It has to be between 0 and 2147483647.");
    }
    if (listen(descriptor, static_cast<int>(queue)) == -1) {
        fail<InitException>("Could not listen on socket. Failed using the listen system call. ", errno);
    }
}

std::unique_ptr<SocketStream> ServerSocketImpl::accept() {
    while (true) {
        const int descriptor = accept4(_socketCloser.get(), nullptr, nullptr, SOCK_CLOEXEC);
        if (descriptor != -1) {
            return _streamFactory.create(descriptor);
        }
        // A client that went away while it waited in the queue is no failure of the listener.
        if (errno != EINTR && errno != ECONNABORTED) {
            fail<AcceptException>("Error accepting a connection. Failed using the accept system call. ",
                                  errno);
        }
    }
}

void ServerSocketImpl::waitForClient() {
    pollfd entry = {_socketCloser.get(), POLLIN, 0};
    // What poll itself could fail of will show, with its reason, in the accept that comes next.
    while (poll(&entry, 1, -1) == -1 && errno == EINTR) {
    }
}

std::uint32_t ServerSocketImpl::waitingClients() const {
    tcp_info info = {};
    socklen_t size = sizeof(info);
    if (getsockopt(_socketCloser.get(), IPPROTO_TCP, TCP_INFO, &info, &size) == -1) {
        fail<GeneralException>("Error asking for the length of the queue using getsockopt(). ", errno);
    }
    // Of a socket that listens, this field tells the clients in its queue (Linux, tcp_get_info in
    // net/ipv4/tcp.c).
    return info.tcpi_unacked;
}

void ServerSocketImpl::shutdown() {
    const int code = _socketCloser.shutdown(SHUT_RDWR);
    if (code != 0 && code != ENOTCONN) {
        fail<CloseException>(
            "Failed to shut down the socket with the shutdown call. Trying to close both ends. ", code);
    }
}

void ServerSocketImpl::close() { _socketCloser.close(); }

template <class Failure>
void ServerSocketImpl::fail(const char* words, int code) const {
    util::FixedStream<4096> text;
    text << words << "Detailed information:\nSocket id: " << _socketCloser.get() << "\nPort: " << _port
         << "\nQueue: " << _queue << "\n";
    throw Failure(text.appendSystemError(static_cast<std::uint32_t>(code), &_errorMapper).str());
}

ServerSocketFactoryImpl::ServerSocketFactoryImpl(const platform::errorresources::ErrorMapper& errorMapper,
                                                 const SocketStreamFactory& streamFactory)
    : _errorMapper(errorMapper), _streamFactory(streamFactory) {}

std::unique_ptr<ServerSocket> ServerSocketFactoryImpl::create(std::uint16_t port, std::uint32_t queue) const {
    return std::make_unique<ServerSocketImpl>(_errorMapper, _streamFactory, port, queue);
}

}  // namespace net::socket
