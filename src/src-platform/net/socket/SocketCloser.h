#pragma once

#include <atomic>
#include <mutex>

#include "platform/errorresources/ErrorMapper.h"

namespace net::socket {

// Owns the descriptor of a socket and closes it once.
//
// Other threads may call shutdown and isReadable while the owner closes: the one that comes second finds
// nothing to do, so neither ever hits a foreign connection that was given the same number. All else belongs
// to one thread.
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

    // Calls shutdown(2), unless the descriptor is closed. Returns 0 or the system's error code.
    int shutdown(int how);

private:
    std::atomic<int> _descriptor;
    const platform::errorresources::ErrorMapper& _errorMapper;
    std::mutex _mutex;  // held over the system call by all that other threads may call, and by close
};

}  // namespace net::socket
