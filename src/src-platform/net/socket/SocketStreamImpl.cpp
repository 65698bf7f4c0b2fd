#include "net/socket/SocketStreamImpl.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "debug/Assertion.h"
#include "net/socket/SocketException.h"
#include "util/FixedStream.h"

namespace net::socket {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t MAX_SIZE = 2147483647;

// Waits for events on the descriptor. True if there are some, false after that time.
bool waitFor(int descriptor, short events, milliseconds time) {
    const Clock::time_point end = Clock::now() + time;
    while (true) {
        pollfd entry = {descriptor, events, 0};
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
        const int result = poll(
            &entry, 1, static_cast<int>(std::clamp(left, milliseconds(0), milliseconds(MAX_SIZE)).count()));
        if (result >= 0 || errno != EINTR) {
            // What poll itself could fail of will show, with its reason, in the call that comes next.
            return result != 0;
        }
    }
}

sockaddr_in address(int descriptor, int (*ask)(int, sockaddr*, socklen_t*), int& code) {
    sockaddr_in result = {};
    socklen_t size = sizeof(result);
    code = ask(descriptor, reinterpret_cast<sockaddr*>(&result), &size) == -1 ? errno : 0;
    return result;
}

}  // namespace

SocketStreamImpl::SocketStreamImpl(SocketCloser& owner,
                                   const platform::errorresources::ErrorMapper& errorMapper,
                                   const IdleBounds& bounds)
    : _descriptor(owner.get()),
      _socketCloser(owner.release(), errorMapper),
      _errorMapper(errorMapper),
      _bounds(bounds),
      _lastSign(Clock::now()) {
    CHECK(_bounds.receive.count() > 0 && _bounds.send.count() > 0);
    // Costs one call for each connection, where waiting before each read would cost one for each read.
    const auto seconds = std::chrono::floor<std::chrono::seconds>(_bounds.receive);
    timeval time = {};
    time.tv_sec = seconds.count();
    time.tv_usec = std::chrono::microseconds(_bounds.receive - seconds).count();
    if (setsockopt(_descriptor, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof(time)) == -1) {
        fail<ChangeStateException>("Error bounding the time of a read using setsockopt(). ", errno);
    }
}

void SocketStreamImpl::shutdown(End end) {
    const char* which = "";
    switch (end) {
        case RECEIVE:
            which = "Trying to close the RECEIVE end.";
            break;
        case SEND:
            which = "Trying to close the SEND end.";
            break;
        case BOTHENDS:
            which = "Trying to close both ends.";
            break;
        default:
            CHECK(false);
    }
    const int code = _socketCloser.shutdown(end);
    // The peer may go at any moment, also between our last write and this. Then both directions have ended.
    if (code != 0 && code != ENOTCONN) {
        util::FixedStream<256> words;
        words << "Failed to shut down the socket with the shutdown call. " << which << " ";
        fail<CloseException>(words.str(), code);
    }
}

void SocketStreamImpl::close() { _socketCloser.close(); }

void SocketStreamImpl::readExact(char* buffer, std::size_t size) {
    for (std::size_t got = 0; got < size;) {
        const std::size_t bytes = read(buffer + got, size - got);
        if (bytes == 0) {
            fail<UnexpectedEofException>("Unexpected end of file reached when read data from socket. ", 0);
        }
        got += bytes;
    }
}

std::size_t SocketStreamImpl::read(char* buffer, std::size_t size) {
    if (size > MAX_SIZE) {
        throw PreconditionException(
            "Cannot read an amount of data with that size. The data size must be between 0 and 2147483647");
    }
    while (true) {
        const ssize_t bytes = recv(_socketCloser.get(), buffer, size, 0);
        if (bytes >= 0) {
            _inputEnded = bytes == 0 && size != 0;
            _receivedSince += static_cast<std::size_t>(bytes);
            if (_inputEnded || _receivedSince >= SIGN_OF_LIFE) {
                signOfLife();
            }
            return static_cast<std::size_t>(bytes);
        }
        if (errno != EINTR) {
            // A blocking recv reports the end of its time as if it were a call that must not block.
            fail<ReadException>("Error reading data from the socket. Failed using the 'recv' system call. ",
                                errno == EAGAIN ? ETIMEDOUT : errno);
        }
    }
}

std::size_t SocketStreamImpl::readUntil(char* buffer, std::size_t size, const char* match) {
    if (buffer == nullptr || match == nullptr || size > MAX_SIZE || size < std::strlen(match)) {
        throw PreconditionException("Precondition error in 'readUntil'.");
    }
    std::memset(buffer, 0, size);
    std::size_t got = 0;
    // Only the end of the buffer can complete the match, but input may hold zero bytes ahead of it.
    const std::size_t length = std::strlen(match);
    while (got < length || std::memcmp(buffer + got - length, match, length) != 0) {
        if (got + 1 >= size) {
            fail<ReadException>("Buffer about to overflow. ", 0);
        }
        if (read(buffer + got, 1) == 0) {
            fail<ReadException>("Error reading from socket. Could not find the match string in the stream.  ",
                                0);
        }
        ++got;
    }
    return got;
}

std::size_t SocketStreamImpl::write(const char* buffer, std::size_t size) {
    if (size > MAX_SIZE) {
        throw PreconditionException(
            "Cannot send an amount of data with that size. The data size must be between 0 and 2147483647");
    }
    signOfLife();  // what came before was not the peer's turn
    for (std::size_t sent = 0; sent < size;) {
        const ssize_t bytes =
            send(_socketCloser.get(), buffer + sent, size - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (bytes >= 0) {
            sent += static_cast<std::size_t>(bytes);
        } else if (errno == EAGAIN) {
            waitUntilWritable();
        } else if (errno != EINTR) {
            fail<WriteException>("Could not write data on the socket. Failed using the send system call. ",
                                 errno);
        }
    }
    return size;
}

bool SocketStreamImpl::waitForInput(milliseconds time) { return waitFor(_socketCloser.get(), POLLIN, time); }

Silence SocketStreamImpl::silence() {
    if (_socketCloser.get() == -1) {
        return {Clock::duration::zero(), !_hasSpoken, false, true};
    }
    // Behind the end of its sending, a peer has nothing more to be read, and every read would come back at
    // once.
    if (!_inputEnded && _socketCloser.isReadable()) {
        return {Clock::duration::zero(), !_hasSpoken, false};
    }
    // In this order, and only if no write has begun to wait meanwhile: an old look at the queue would pass
    // for progress on what has been put into it since.
    std::size_t known = _unconfirmed;
    const SocketCloser::Queue queue = _socketCloser.queue();
    if (queue.unconfirmed + SIGN_OF_LIFE <= known &&
        _unconfirmed.compare_exchange_strong(known, queue.unconfirmed)) {
        _lastSign = Clock::now();
    }
    // While there is more to send, something is always on its way, unless the peer's window is shut.
    const bool refuses = queue.unsent != 0 && queue.unsent == queue.unconfirmed;
    return {Clock::now() - _lastSign.load(), !_hasSpoken, refuses};
}

void SocketStreamImpl::signOfLife() {
    _receivedSince = 0;
    _hasSpoken = true;
    _lastSign = Clock::now();
}

// The system calls a socket writable again only when a third of its buffer, up to megabytes, has become free.
// A slow peer may need longer than the bound for that, so its progress is read off the queue itself.
void SocketStreamImpl::waitUntilWritable() {
    const milliseconds slice = std::max(_bounds.send / 16, milliseconds(1));
    std::size_t queued = _socketCloser.queue().unconfirmed;
    _unconfirmed = queued;
    Clock::time_point lastTaken = Clock::now();
    while (!waitFor(_socketCloser.get(), POLLOUT, slice)) {
        const std::size_t left = _socketCloser.queue().unconfirmed;
        if (left < queued) {
            queued = left;
            lastTaken = Clock::now();
        } else if (Clock::now() - lastTaken >= _bounds.send) {
            fail<WriteException>("Could not write data on the socket. Failed using the send system call. ",
                                 ETIMEDOUT);
        }
    }
    signOfLife();
}

std::string SocketStreamImpl::getRemoteAddress() const {
    int code = 0;
    const sockaddr_in remote = address(_socketCloser.get(), getpeername, code);
    if (code != 0) {
        fail<GeneralException>("Error getting peer name using 'getpeername'. ", code);
    }
    char text[INET_ADDRSTRLEN];
    if (inet_ntop(AF_INET, &remote.sin_addr, text, sizeof(text)) == nullptr) {
        fail<GeneralException>("Error converting remote name to an IP address using 'inet_ntoa'. ", errno);
    }
    return text;
}

std::string SocketStreamImpl::getLocalAddress() const {
    int code = 0;
    const sockaddr_in local = address(_socketCloser.get(), getsockname, code);
    if (code != 0) {
        fail<GeneralException>("Error getting local name for the socket when using 'getsockname'. ", code);
    }
    char text[INET_ADDRSTRLEN];
    if (inet_ntop(AF_INET, &local.sin_addr, text, sizeof(text)) == nullptr) {
        fail<GeneralException>("Error convering local name to the IP address when using 'inet_ntoa'. ",
                               errno);
    }
    return text;
}

template <class Failure>
void SocketStreamImpl::fail(const char* words, int code) const {
    util::FixedStream<4096> text;
    text << words << "Detailed information\nSocket fd: " << _descriptor
         << "\nsocketCloser fd: " << _socketCloser.get() << "\n";
    throw Failure(text.appendSystemError(static_cast<std::uint32_t>(code), &_errorMapper).str());
}

SocketStreamFactoryImpl::SocketStreamFactoryImpl(const platform::errorresources::ErrorMapper& errorMapper,
                                                 const IdleBounds& bounds)
    : _errorMapper(errorMapper), _bounds(bounds) {}

std::unique_ptr<SocketStream> SocketStreamFactoryImpl::create(int descriptor) const {
    SocketCloser owner(descriptor, _errorMapper);
    return std::make_unique<SocketStreamImpl>(owner, _errorMapper, _bounds);
}

}  // namespace net::socket
