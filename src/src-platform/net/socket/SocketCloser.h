#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>

#include "platform/errorresources/ErrorMapper.h"

namespace net::socket {

// Owns the descriptor of a socket and closes it once.
//
// Other threads may call shutdown, isReadable and queue while the owner closes: the one that comes second
// finds nothing to do, so neither ever hits a foreign connection that was given the same number. All else
// belongs to one thread.
class SocketCloser {
public:
    // The mapper must outlive this object.
    SocketCloser(int descriptor, const platform::errorresources::ErrorMapper& errorMapper);
    SocketCloser(const SocketCloser&) = delete;
    SocketCloser& operator=(const SocketCloser&) = delete;
    ~SocketCloser();

    // The descriptor, or -1 after it has been closed or released.
    int get() const { return _descriptor.load(std::memory_order_relaxed); }

    // Gives the descriptor away.
    int release();

    // Throws CloseException. A second call does nothing.
    void close();

    // True if a read would not block: for bytes, the end of the stream or a failure. False once it is closed.
    bool isReadable();

    // Of what has been written, the bytes that the peer's system hasn't confirmed, and of these the ones that
    // haven't been sent yet. None once it is closed.
    struct Queue {
        std::size_t unconfirmed = 0;
        std::size_t unsent = 0;
    };
    Queue queue();

    // Calls shutdown(2), unless the descriptor is closed. Returns 0 or the system's error code.
    int shutdown(int how);

private:
    std::atomic<int> _descriptor;
    const platform::errorresources::ErrorMapper& _errorMapper;
    std::mutex _mutex;  // held over the system call by all that other threads may call, and by close
};

}  // namespace net::socket
