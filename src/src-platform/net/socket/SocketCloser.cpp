#include "net/socket/SocketCloser.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "debug/Assertion.h"
#include "net/socket/SocketException.h"
#include "util/FixedStream.h"

namespace net::socket {

SocketCloser::SocketCloser(int descriptor, const platform::errorresources::ErrorMapper& errorMapper)
    : _descriptor(descriptor), _errorMapper(errorMapper) {}

SocketCloser::~SocketCloser() {
    try {
        close();
    } catch (const SocketException& e) {
        CHECK(false, e.what());
    }
}

int SocketCloser::release() { return _descriptor.exchange(-1); }

void SocketCloser::close() {
    const std::lock_guard guard(_mutex);
    const int descriptor = release();
    if (descriptor == -1) {
        return;
    }
    // An interrupted close has freed the descriptor all the same; a second try could hit somebody else's.
    if (::close(descriptor) == -1 && errno != EINTR) {
        const auto code = static_cast<std::uint32_t>(errno);
        util::FixedStream<4096> text;
        text
            << "Error closing the socket in the SocketCloser. The closesocket system call failed. Socket id: "
            << descriptor << ". ";
        throw CloseException(text.appendSystemError(code, &_errorMapper).str());
    }
}

bool SocketCloser::isReadable() {
    const std::lock_guard guard(_mutex);
    pollfd entry = {get(), POLLIN, 0};
    return poll(&entry, 1, 0) > 0;
}

SocketCloser::Queue SocketCloser::queue() {
    const std::lock_guard guard(_mutex);
    int unconfirmed = 0;
    int unsent = 0;
    if (ioctl(get(), SIOCOUTQ, &unconfirmed) == -1 || ioctl(get(), SIOCOUTQNSD, &unsent) == -1) {
        return {};
    }
    return {static_cast<std::size_t>(unconfirmed), static_cast<std::size_t>(unsent)};
}

int SocketCloser::shutdown(int how) {
    const std::lock_guard guard(_mutex);
    return get() != -1 && ::shutdown(get(), how) == -1 ? errno : 0;
}

}  // namespace net::socket
