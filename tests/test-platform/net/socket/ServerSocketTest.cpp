#include "net/socket/ServerSocketImpl.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <optional>
#include <thread>

#include "net/socket/SocketException.h"
#include "net/socket/SocketInitializer.h"
#include "net/socket/SocketStreamImpl.h"
#include "support/Descriptors.h"
#include "support/LoopbackClient.h"
#include "windows/net/winsock/WinsockErrors.h"

namespace net::socket {
namespace {

class ServerSocketTest : public testing::Test {
protected:
    template <class Failure, class Action>
    static std::string messageOf(const Action& action) {
        try {
            action();
        } catch (const Failure& e) {
            return e.what();
        }
        return "";
    }

    windows::net::winsock::WinsockErrors mapper;
    SocketStreamFactoryImpl streams{mapper};
    ServerSocketFactoryImpl sockets{mapper, streams};
};

TEST_F(ServerSocketTest, AcceptIsWokenByShutdownAndFailsFromThenOn) {
    const std::unique_ptr<ServerSocket> listener = sockets.create(0, 7);
    const support::LoopbackClient queued(listener->port());
    EXPECT_NE(listener->accept(), nullptr);
    std::string message;
    std::jthread acceptor([&] { message = messageOf<AcceptException>([&] { listener->accept(); }); });
    listener->shutdown();
    acceptor.join();
    const std::string port = std::to_string(listener->port());
    EXPECT_EQ(message.find("Error accepting a connection. Failed using the accept system call. "
                           "Detailed information:\nSocket id: "),
              0u);
    EXPECT_NE(message.find("\nPort: " + port +
                           "\nQueue: 7\nSystem error message: Invalid argument. Error code: 22."),
              std::string::npos)
        << message;
    EXPECT_THROW(listener->accept(), AcceptException);
    listener->close();
    listener->close();
    EXPECT_THROW(support::LoopbackClient(listener->port()), std::system_error);
}

TEST_F(ServerSocketTest, PortIsFreeAgainAtOnceButNeverSharedWithAListener) {
    std::uint16_t port = 0;
    {
        const std::unique_ptr<ServerSocket> listener = sockets.create(0, 5);
        port = listener->port();
        support::LoopbackClient client(port);
        // The side that closes first is the one that keeps the port in TIME_WAIT.
        listener->accept().reset();
        client.receiveAll();
        const std::string message = messageOf<InitException>([&] { sockets.create(port, 5); });
        EXPECT_EQ(message.find("Could not bind the socket. Failed using the bind system call. Detailed"), 0u);
        EXPECT_NE(message.find("Error code: 98."), std::string::npos) << message;
    }
    EXPECT_EQ(sockets.create(port, 5)->port(), port);
}

TEST_F(ServerSocketTest, QueueIsJudgedAfterThePortAndLeavesNothingBehind) {
    const std::size_t before = support::openDescriptors();
    EXPECT_EQ(messageOf<PreconditionException>([&] { sockets.create(0, 2147483648); }),
              "The queue number is too large. It has to be between 0 and 2147483647.");
    EXPECT_EQ(support::openDescriptors(), before);
    const std::unique_ptr<ServerSocket> listener = sockets.create(0, 2147483647);
    EXPECT_THROW(sockets.create(listener->port(), 2147483648), InitException);
}

TEST_F(ServerSocketTest, ClientWaitsInTheQueueWhileThereAreNoDescriptors) {
    const std::unique_ptr<ServerSocket> listener = sockets.create(0, 5);
    support::LoopbackClient client(listener->port());
    client.send("x");
    {
        const support::NoDescriptorsLeft limit;
        EXPECT_NE(messageOf<AcceptException>([&] { listener->accept(); }).find("Error code: 24."),
                  std::string::npos);
        EXPECT_NE(messageOf<InitException>([&] {
                      sockets.create(0, 5);
                  }).find("Error creating socket with the socket() call. "),
                  std::string::npos);
    }
    char byte = 0;
    EXPECT_EQ(listener->accept()->read(&byte, 1), 1u);
}

TEST(SocketInitializerTest, ReaderOfTheLogMayGoWithoutTakingTheServerWithIt) {
    struct sigaction before = {};
    sigaction(SIGPIPE, nullptr, &before);
    {
        const SocketInitializerImpl initializer;
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        close(ends[0]);
        EXPECT_EQ(write(ends[1], "x", 1), -1);
        close(ends[1]);
    }
    struct sigaction after = {};
    sigaction(SIGPIPE, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler);
}

}  // namespace
}  // namespace net::socket
