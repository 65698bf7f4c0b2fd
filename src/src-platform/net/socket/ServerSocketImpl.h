#pragma once

#include "net/socket/ServerSocket.h"
#include "net/socket/SocketCloser.h"
#include "platform/errorresources/ErrorMapper.h"

namespace net::socket {

class ServerSocketImpl final : public ServerSocket {
public:
    // As ServerSocketFactory::create. Mapper and factory must outlive this object.
    ServerSocketImpl(const platform::errorresources::ErrorMapper& errorMapper,
                     const SocketStreamFactory& streamFactory, std::uint16_t port, std::uint32_t queue);

    std::unique_ptr<SocketStream> accept() override;
    void waitForClient() override;
    std::uint32_t waitingClients() const override;
    void shutdown() override;
    void close() override;
    std::uint16_t port() const override { return _port; }

private:
    template <class Failure>
    [[noreturn]] void fail(const char* words, int code) const;

    const platform::errorresources::ErrorMapper& _errorMapper;
    const SocketStreamFactory& _streamFactory;
    std::uint16_t _port;
    const std::uint32_t _queue;
    SocketCloser _socketCloser;
};

class ServerSocketFactoryImpl final : public ServerSocketFactory {
public:
    // Both must outlive the sockets.
    ServerSocketFactoryImpl(const platform::errorresources::ErrorMapper& errorMapper,
                            const SocketStreamFactory& streamFactory);
    std::unique_ptr<ServerSocket> create(std::uint16_t port, std::uint32_t queue) const override;

private:
    const platform::errorresources::ErrorMapper& _errorMapper;
    const SocketStreamFactory& _streamFactory;
};

}  // namespace net::socket
