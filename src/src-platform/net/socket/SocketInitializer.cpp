#include "net/socket/SocketInitializer.h"

#include <cerrno>

#include "debug/Assertion.h"
#include "net/socket/SocketException.h"
#include "util/FixedStream.h"

namespace net::socket {

SocketInitializerImpl::SocketInitializerImpl() {
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    if (sigaction(SIGPIPE, &ignore, &_before) == -1) {
        const auto code = static_cast<std::uint32_t>(errno);
        util::FixedStream<4096> text;
        text << "Could not ignore SIGPIPE. Failed using the sigaction system call. ";
        throw InitException(text.appendSystemError(code).str());
    }
}

SocketInitializerImpl::~SocketInitializerImpl() {
    const int result = sigaction(SIGPIPE, &_before, nullptr);
    CHECK(result == 0);
}

}  // namespace net::socket
