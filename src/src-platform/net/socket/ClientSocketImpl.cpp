#include "net/socket/ClientSocketImpl.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>

#include "debug/Assertion.h"
#include "net/socket/SocketCloser.h"
#include "net/socket/SocketException.h"
#include "util/FixedStream.h"
#include "util/StringHelper.h"
#include "windows/net/winsock/WinsockErrors.h"

namespace net::socket {

namespace {

// The resolver's own codes are small negative numbers; in messages they go by those of the socket errors'
// table.
std::uint32_t resolverCode(int result, int systemCode) {
    namespace winsock = windows::net::winsock;
    switch (result) {
        case EAI_SYSTEM:
            return static_cast<std::uint32_t>(systemCode);
        case EAI_MEMORY:
            return ENOMEM;
        case EAI_AGAIN:
            return winsock::NO_NAME_SERVER;
        case EAI_NODATA:
            return winsock::HOST_WITHOUT_ADDRESS;
        case EAI_NONAME:
            return winsock::UNKNOWN_HOST;
        default:
            return winsock::NAME_SERVER_FAILED;
    }
}

// A caller whose own port the system happens to choose equal to a free one that it calls is connected to
// itself.
bool isConnectedToItself(int descriptor, const sockaddr_in& called) {
    sockaddr_in local = {};
    socklen_t size = sizeof(local);
    return getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &size) == 0 &&
           local.sin_port == called.sin_port && local.sin_addr.s_addr == called.sin_addr.s_addr;
}

}  // namespace

ClientSocketImpl::ClientSocketImpl(const platform::errorresources::ErrorMapper& errorMapper,
                                   const SocketStreamFactory& streamFactory, std::chrono::seconds bound)
    : _errorMapper(errorMapper), _streamFactory(streamFactory), _bound(bound) {}

SocketStream& ClientSocketImpl::connect(const std::string& host, std::uint16_t port) {
    CHECK(!_socketStream);
    _host = host;
    _port = port;
    SocketCloser closer(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), _errorMapper);
    if (closer.get() == -1) {
        fail<InitException>("Error creating socket with the 'socket' system call.\n",
                            static_cast<std::uint32_t>(errno));
    }
    // The time of a send is what bounds a connect as well.
    timeval time = {};
    time.tv_sec = _bound.count();
    if (setsockopt(closer.get(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof(time)) == -1) {
        fail<ChangeStateException>("Error bounding the time of a connect using setsockopt().\n",
                                   static_cast<std::uint32_t>(errno));
    }

    sockaddr_in address = resolve(host);
    address.sin_port = htons(port);

    int code = 0;
    do {
        // An interrupted connect goes on by itself; a second call waits for the same one.
        code =
            ::connect(closer.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == -1 ? errno : 0;
    } while (code == EINTR);
    if (code == 0 && isConnectedToItself(closer.get(), address)) {
        // Nobody listens there. An orderly close would keep the port busy, and from a server that wants it,
        // for a minute; a reset frees it at once.
        const linger now = {1, 0};
        setsockopt(closer.get(), SOL_SOCKET, SO_LINGER, &now, sizeof(now));
        code = ECONNREFUSED;
    }
    if (code != 0) {
        util::FixedStream<2048> words;
        words << "Error connecting socket.\nFailed using the 'connect' system call.\nTrying to connect to "
              << host.c_str() << ":" << port << ".\n";
        // This is how a blocking connect reports the end of its time.
        fail<ConnectException>(words.str(),
                               static_cast<std::uint32_t>(code == EINPROGRESS ? ETIMEDOUT : code));
    }
    _socketStream = _streamFactory.create(closer.release());
    return *_socketStream;
}

sockaddr_in ClientSocketImpl::resolve(const std::string& host) const {
    sockaddr_in address = {};
    if (util::StringHelper::toLower(host) == "localhost") {
        // The loopback by definition (RFC 6761, 6.3). Small machines have no hosts file that says so, and a
        // name server has no say in it.
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int result = getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (result != 0) {
        const std::uint32_t code = resolverCode(result, errno);
        util::FixedStream<2048> words;
        words << "Error converting hostname " << host.c_str()
              << " to an IP address.\nFailed using the 'gethostbyname' system call.\n";
        fail<ConnectException>(words.str(), code);
    }
    address = *reinterpret_cast<sockaddr_in*>(found->ai_addr);
    freeaddrinfo(found);
    return address;
}

template <class Failure>
void ClientSocketImpl::fail(const char* words, std::uint32_t code) const {
    util::FixedStream<4096> text;
    text << words << "Detailed information:\nHost: " << _host.c_str() << "\nPort: " << _port
         << "\nSocketStream: " << static_cast<const void*>(_socketStream.get()) << "\n";
    throw Failure(text.appendSystemError(code, &_errorMapper).str());
}

ClientSocketFactoryImpl::ClientSocketFactoryImpl(const platform::errorresources::ErrorMapper& errorMapper,
                                                 const SocketStreamFactory& streamFactory)
    : _errorMapper(errorMapper), _streamFactory(streamFactory) {}

std::unique_ptr<ClientSocket> ClientSocketFactoryImpl::create() const {
    return std::make_unique<ClientSocketImpl>(_errorMapper, _streamFactory);
}

}  // namespace net::socket
