#include "load/Echo.h"

#include <atomic>
#include <system_error>
#include <thread>

#include "net/socket/ServerSocketImpl.h"
#include "net/socket/SocketException.h"
#include "net/socket/SocketStreamImpl.h"
#include "windows/net/winsock/WinsockErrors.h"

namespace halvern::morvane::client {

namespace {

constexpr std::uint32_t QUEUE = 1024;

// Knows how much will come, so it need not wait for the end of the stream.
void echo(net::socket::SocketStream& stream) {
    try {
        char buffer[Echo::SIZE];
        stream.readExact(buffer, sizeof(buffer));
        stream.write(buffer, sizeof(buffer));
        stream.shutdown(net::socket::SocketStream::SEND);
    } catch (const net::socket::SocketException&) {
        // The client counts it.
    }
}

}  // namespace

class Echo::Listener {
public:
    Listener() : _streams(_mapper), _socket(_mapper, _streams, 0, QUEUE), _acceptor([this] { accept(); }) {}
    ~Listener() {
        _socket.shutdown();
        _acceptor.join();
        for (std::uint32_t count = *_running; count != 0; count = *_running) {
            _running->wait(count);
        }
    }

    std::uint16_t port() const { return _socket.port(); }

private:
    void accept() {
        try {
            while (true) {
                std::unique_ptr<net::socket::SocketStream> stream = _socket.accept();
                ++*_running;
                try {
                    std::thread([running = _running, stream = std::move(stream)] {
                        echo(*stream);
                        --*running;
                        running->notify_all();
                    }).detach();
                } catch (const std::system_error&) {
                    // No thread to be had: the client sees its connection close, and counts that.
                    --*_running;
                }
            }
        } catch (const net::socket::AcceptException&) {
            // The end of listening.
        }
    }

    const windows::net::winsock::WinsockErrors _mapper;
    const net::socket::SocketStreamFactoryImpl _streams;
    net::socket::ServerSocketImpl _socket;
    // Shared with the threads, the last of which may still announce its end when this object has gone.
    const std::shared_ptr<std::atomic<std::uint32_t>> _running =
        std::make_shared<std::atomic<std::uint32_t>>(0);
    std::thread _acceptor;  // begins last, since it uses all of the above
};

Echo::Echo() : _listener(std::make_unique<Listener>()) {}
Echo::~Echo() = default;
std::uint16_t Echo::port() const { return _listener->port(); }

}  // namespace halvern::morvane::client
