#pragma once

#include <netinet/in.h>

#include <chrono>

#include "net/socket/ClientSocket.h"
#include "platform/errorresources/ErrorMapper.h"

namespace net::socket {

// A listener with a full queue lets a caller wait for minutes without a word.
inline constexpr std::chrono::seconds CONNECT_BOUND{60};

class ClientSocketImpl final : public ClientSocket {
public:
    // Mapper and factory must outlive this object. A connect that takes longer than bound fails.
    ClientSocketImpl(const platform::errorresources::ErrorMapper& errorMapper,
                     const SocketStreamFactory& streamFactory, std::chrono::seconds bound = CONNECT_BOUND);

    SocketStream& connect(const std::string& host, std::uint16_t port) override;

private:
    sockaddr_in resolve(const std::string& host) const;
    template <class Failure>
    [[noreturn]] void fail(const char* words, std::uint32_t code) const;

    const platform::errorresources::ErrorMapper& _errorMapper;
    const SocketStreamFactory& _streamFactory;
    const std::chrono::seconds _bound;
    std::unique_ptr<SocketStream> _socketStream;
    std::string _host;
    std::uint16_t _port = 0;
};

class ClientSocketFactoryImpl final : public ClientSocketFactory {
public:
    // Both must outlive the sockets.
    ClientSocketFactoryImpl(const platform::errorresources::ErrorMapper& errorMapper,
                            const SocketStreamFactory& streamFactory);
    std::unique_ptr<ClientSocket> create() const override;

private:
    const platform::errorresources::ErrorMapper& _errorMapper;
    const SocketStreamFactory& _streamFactory;
};

}  // namespace net::socket
