#include "net/socket/ServerSocketImpl.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <thread>

#include "net/socket/SocketException.h"
#include "net/socket/SocketInitializer.h"
#include "net/socket/SocketStreamImpl.h"
#include "support/Failure.h"
#include "support/LoopbackClient.h"
#include "windows/net/winsock/WinsockErrors.h"

namespace net::socket {
namespace {

using support::failureOf;

TEST(ServerSocketTest, PortIsFreeAgainAtOnceButNeverSharedWithAListener) {
    const windows::net::winsock::WinsockErrors mapper;
    const SocketStreamFactoryImpl streams(mapper);
    const ServerSocketFactoryImpl sockets(mapper, streams);
    std::uint16_t port = 0;
    {
        const std::unique_ptr<ServerSocket> listener = sockets.create(0, 5);
        port = listener->port();
        support::LoopbackClient client(port);
        // The side that closes first is the one that keeps the port in TIME_WAIT.
        listener->accept().reset();
        client.receiveAll();
        EXPECT_NE(failureOf<InitException>([&] { sockets.create(port, 5); }).find("Error code: 98."),
                  std::string::npos);
    }
    EXPECT_EQ(sockets.create(port, 2147483647)->port(), port);
}

TEST(SocketInitializerTest, ReaderOfTheLogMayGoWithoutTakingTheServerWithIt) {
    EXPECT_EXIT(
        {
            int ends[2];
            close(pipe(ends) == 0 ? ends[0] : -1);
            const auto writes = [&] { return write(ends[1], "x", 1) == 1; };
            {
                const SocketInitializerImpl initializer;
                std::fputs(writes() ? "written" : "ignored", stderr);
            }
            writes();
        },
        testing::KilledBySignal(SIGPIPE), "ignored");
}

}  // namespace
}  // namespace net::socket
