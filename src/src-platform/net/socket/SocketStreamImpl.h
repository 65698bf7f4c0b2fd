#pragma once

#include <atomic>

#include "net/socket/SocketCloser.h"
#include "net/socket/SocketStream.h"
#include "platform/errorresources/ErrorMapper.h"

namespace net::socket {

// How long a peer that sends nothing, or takes nothing of what is sent to it, is put up with.
inline constexpr std::chrono::milliseconds RECEIVE_IDLE_BOUND = std::chrono::seconds(60);
inline constexpr std::chrono::milliseconds SEND_IDLE_BOUND = std::chrono::seconds(60);

// Each above 0. A bound runs anew with every byte that moves: a slow peer is no idle one.
struct IdleBounds {
    std::chrono::milliseconds receive = RECEIVE_IDLE_BOUND;
    std::chrono::milliseconds send = SEND_IDLE_BOUND;
};

class SocketStreamImpl final : public SocketStream {
public:
    // Takes the descriptor out of owner, whose place this object takes. The mapper must outlive this object.
    // Throws ChangeStateException.
    SocketStreamImpl(SocketCloser& owner, const platform::errorresources::ErrorMapper& errorMapper,
                     const IdleBounds& bounds);

    void shutdown(End end) override;
    void close() override;
    void readExact(char* buffer, std::size_t size) override;
    std::size_t read(char* buffer, std::size_t size) override;
    std::size_t readUntil(char* buffer, std::size_t size, const char* match) override;
    std::size_t write(const char* buffer, std::size_t size) override;
    bool waitForInput(std::chrono::milliseconds time) override;
    Silence silence() override;
    std::string getRemoteAddress() const override;
    std::string getLocalAddress() const override;

private:
    void signOfLife();
    void waitUntilWritable();
    template <class Failure>
    [[noreturn]] void fail(const char* words, int code) const;

    const int _descriptor;  // for messages only: a closed number may belong to somebody else
    SocketCloser _socketCloser;
    const platform::errorresources::ErrorMapper& _errorMapper;
    const IdleBounds _bounds;
    std::atomic<std::chrono::steady_clock::time_point> _lastSign;
    std::atomic<bool> _hasSpoken = false;
    std::atomic<bool> _inputEnded = false;
    // Bytes that the peer's system had not confirmed at its last sign of life, or when a write began to wait.
    std::atomic<std::size_t> _unconfirmed = 0;
    std::size_t _receivedSince = 0;  // bytes since the last sign of life
};

class SocketStreamFactoryImpl final : public SocketStreamFactory {
public:
    // The mapper must outlive the streams.
    explicit SocketStreamFactoryImpl(const platform::errorresources::ErrorMapper& errorMapper,
                                     const IdleBounds& bounds = {});
    std::unique_ptr<SocketStream> create(int descriptor) const override;

private:
    const platform::errorresources::ErrorMapper& _errorMapper;
    const IdleBounds _bounds;
};

}  // namespace net::socket
