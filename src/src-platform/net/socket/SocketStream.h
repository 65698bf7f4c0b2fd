#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

namespace net::socket {

// What a peer must send or take for it to count as a sign of life: less than the smallest usual packet, so
// that a slow line gives one with each packet, but more than somebody sends who only means to hold a place.
inline constexpr std::size_t SIGN_OF_LIFE = 512;

// How long the peer has given no sign of life, whether it ever gave one, and whether it refuses what we
// write: its system has confirmed all that was on the line and lets no more come, so it isn't the line that
// is slow, but the peer's program that doesn't read.
struct Silence {
    std::chrono::nanoseconds time{0};
    bool fromTheStart = true;
    bool refuses = false;
    bool hasEnded = false;  // the stream is closed, and its place about to become free
};

// One TCP connection, blocking, IPv4. Used by one thread; only shutdown and silence may be called from
// another one.
// All operations but waitForInput report failures as SocketException; a peer that neither sends nor takes a
// byte for as long as the stream's IdleBounds allow is such a failure.
class SocketStream {
public:
    enum End { RECEIVE = 0, SEND = 1, BOTHENDS = 2 };

    virtual ~SocketStream() = default;

    // Ends one or both directions. The peer reads the end of the stream behind what was written before; a
    // read of our own that blocks returns 0. Nothing happens if the connection has already gone. Throws
    // CloseException.
    virtual void shutdown(End end) = 0;

    // Frees the connection. Input that nobody has read makes the system reset it, and the peer may then lose
    // an answer that it has not taken yet. A second call does nothing. Throws CloseException.
    virtual void close() = 0;

    // Reads size bytes, however they arrive. Throws UnexpectedEofException if the stream ends before that.
    virtual void readExact(char* buffer, std::size_t size) = 0;

    // Reads what is there, at least one byte and at most size; 0 means that the peer has ended its sending.
    // Throws ReadException, also if nothing comes for the length of the receiving bound.
    virtual std::size_t read(char* buffer, std::size_t size) = 0;

    // Reads up to and with the first match into the buffer, which is terminated by a zero byte, so that it
    // takes size - 1 bytes. Returns the number of bytes read. Throws ReadException if the stream ends or the
    // buffer is full before that.
    virtual std::size_t readUntil(char* buffer, std::size_t size, const char* match) = 0;

    // Writes all of the bytes and returns their number. Throws WriteException, also if the peer takes no byte
    // for the length of the sending bound.
    virtual std::size_t write(const char* buffer, std::size_t size) = 0;

    // Waits until a read would not block: for bytes, the end of the stream or a failure. False after that
    // time.
    virtual bool waitForInput(std::chrono::milliseconds time) = 0;

    // How long the peer has been silent since the connection began, its last sign of life, or the beginning
    // of a write. No time at all while there is something of it to be read, or when closed. May be called
    // from any thread.
    virtual Silence silence() = 0;

    // Dotted address of either side. Throw GeneralException.
    virtual std::string getRemoteAddress() const = 0;
    virtual std::string getLocalAddress() const = 0;
};

class SocketStreamFactory {
public:
    virtual ~SocketStreamFactory() = default;

    // Takes over the descriptor of a connected socket; it is closed if this throws.
    virtual std::unique_ptr<SocketStream> create(int descriptor) const = 0;
};

}  // namespace net::socket
