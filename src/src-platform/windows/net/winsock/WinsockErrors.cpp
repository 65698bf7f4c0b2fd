#include "windows/net/winsock/WinsockErrors.h"

#include <cerrno>

#include "debug/Assertion.h"

namespace windows::net::winsock {

WinsockErrors::WinsockErrors() {
    add(ENOMEM, "Insufficient memory available. The system could not allocate what the call needs.");
    add(EINTR, "Interrupted function call. A signal came while the call was waiting.");
    add(EBADF, "Bad file handle. The descriptor is not open.");
    add(EACCES, "Permission denied. The call is not allowed to this user, such as a bind to a low port.");
    add(EFAULT, "Bad address. A pointer leads outside of the memory of this process.");
    add(EINVAL, "Invalid argument. An argument, or the state of the socket, does not suit the call.");
    add(EMFILE, "Too many open files. The process has no descriptor left.");
    add(ENFILE, "Too many open files. The system has no descriptor left.");
    add(EAGAIN, "Resource temporarily unavailable. The call would have to wait; try again later.");
    add(EINPROGRESS, "Operation now in progress. The call goes on in the background.");
    add(EALREADY, "Operation already in progress. An earlier call has not finished yet.");
    add(ENOTSOCK, "Socket operation on non-socket. The descriptor is something other than a socket.");
    add(EDESTADDRREQ, "Destination address required. The call needs an address.");
    add(EMSGSIZE, "Message too long. It exceeds what the socket takes at once.");
    add(EPROTOTYPE, "Protocol wrong type for socket. The protocol does not have this kind of socket.");
    add(ENOPROTOOPT, "Bad protocol option. The option or its level is unknown here.");
    add(EPROTONOSUPPORT, "Protocol not supported. The system does not have this protocol.");
    add(ESOCKTNOSUPPORT, "The specified socket type is not supported by this address family.");
    add(EOPNOTSUPP, "Operation not supported. This kind of socket cannot do that.");
    add(EPFNOSUPPORT, "Protocol family not supported. The system does not have it.");
    add(EAFNOSUPPORT,
        "Address family not supported by protocol family. The address does not suit the socket.");
    add(EADDRINUSE, "Address already in use. Another socket has this address and port.");
    add(EADDRNOTAVAIL, "Cannot assign requested address. It does not belong to this machine.");
    add(ENETDOWN, "Network is down. The interface does not work.");
    add(ENETUNREACH, "Network is unreachable. There is no way to that network.");
    add(ENETRESET, "Network dropped connection on reset. Keeping it alive has failed.");
    add(ECONNABORTED, "Software caused connection abort. This side has given the connection up.");
    add(ECONNRESET, "Connection reset by peer. The other side has cut the connection off.");
    add(EPIPE, "Connection reset by peer. The other side takes no more data.");
    add(ENOBUFS, "No buffer space available. The system lacks memory for the socket.");
    add(EISCONN, "Socket is already connected. It cannot be connected a second time.");
    add(ENOTCONN, "Socket is not connected. There is no peer, or not any more.");
    add(ESHUTDOWN, "The socket has been shutdown. That direction has been ended before.");
    add(ETOOMANYREFS, "BSD: Too many references. The system refuses one more.");
    add(ETIMEDOUT, "Connection timed out. The other side has not answered in time.");
    add(ECONNREFUSED, "Connection refused. Nobody listens there.");
    add(ELOOP, "Undocumented WinSock error code used in BSD. Too many links in a name.");
    add(ENAMETOOLONG, "Undocumented WinSock error code used in BSD. A name is too long.");
    add(EHOSTDOWN, "Host is down. The machine does not respond.");
    add(EHOSTUNREACH, "No route to host. There is no way to that machine.");
    add(ENOTEMPTY, "Undocumented WinSock error code. A directory is not empty.");
    add(EUSERS, "Undocumented WinSock error code. There are too many users.");
    add(EDQUOT, "Undocumented WinSock error code. The quota is used up.");
    add(ESTALE, "Undocumented WinSock error code. A file handle is out of date.");
    add(EREMOTE, "Undocumented WinSock error code. The object is on another machine.");
    add(UNKNOWN_HOST, "Host not found. No machine has that name.");
    add(NO_NAME_SERVER, "Non-authoritative host not found. The name server did not answer; try again later.");
    add(NAME_SERVER_FAILED, "This is a non-recoverable error. The name server failed.");
    add(HOST_WITHOUT_ADDRESS, "Valid name, no data record of requested type. The name has no such address.");
}

WinsockErrors::Mapping WinsockErrors::map(std::int32_t code) const {
    const auto found = _map.find(code);
    return found == _map.end() ? Mapping{false, nullptr} : Mapping{true, found->second.c_str()};
}

void WinsockErrors::add(std::int32_t errorCode, const char* text) {
    CHECK(_map.find(errorCode) == _map.end());
    _map.emplace(errorCode, text);
}

}  // namespace windows::net::winsock
