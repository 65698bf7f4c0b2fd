#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

namespace support {

// A client on this machine, built on bare system calls, so that it can also behave badly.
class LoopbackClient {
public:
    // A small receiveBuffer (in bytes) makes the server's writes block early.
    explicit LoopbackClient(std::uint16_t port, int receiveBuffer = 0)
        : _descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        require(_descriptor != -1, "socket");
        if (receiveBuffer != 0) {
            setsockopt(_descriptor, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
        }
        // No test waits longer than this for a server that should have spoken.
        const timeval patience = {90, 0};
        setsockopt(_descriptor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
        setsockopt(_descriptor, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const bool connected =
            ::connect(_descriptor, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
        if (!connected) {
            const int code = errno;
            close();
            throw std::system_error(code, std::generic_category(), "connect");
        }
    }
    LoopbackClient(const LoopbackClient&) = delete;
    LoopbackClient& operator=(const LoopbackClient&) = delete;
    ~LoopbackClient() { close(); }

    // False if the server took less than all of it.
    bool send(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t sent = ::send(_descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent <= 0) {
                return false;
            }
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
        return true;
    }

    void halfClose() { ::shutdown(_descriptor, SHUT_WR); }

    // Everything up to the server's end of the stream. Throws if that end is a reset or doesn't come.
    std::string receiveAll() {
        std::string all;
        char piece[65536];
        while (true) {
            const ssize_t got = recv(_descriptor, piece, sizeof(piece), 0);
            require(got != -1, "recv");
            if (got == 0) {
                return all;
            }
            all.append(piece, static_cast<std::size_t>(got));
        }
    }

    std::string receiveExactly(std::size_t size) {
        std::string bytes(size, '\0');
        const ssize_t got = recv(_descriptor, bytes.data(), size, MSG_WAITALL);
        require(got == static_cast<ssize_t>(size), "recv");
        return bytes;
    }

    // One request, one answer.
    std::string ask(std::string_view request) {
        require(send(request), "send");
        halfClose();
        return receiveAll();
    }

    // Cuts the connection off without an orderly end.
    void reset() {
        const linger now = {1, 0};
        setsockopt(_descriptor, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
        close();
    }

    void close() {
        if (_descriptor != -1) {
            ::close(_descriptor);
            _descriptor = -1;
        }
    }

private:
    static void require(bool condition, const char* what) {
        if (!condition) {
            throw std::system_error(errno, std::generic_category(), what);
        }
    }

    int _descriptor;
};

}  // namespace support
