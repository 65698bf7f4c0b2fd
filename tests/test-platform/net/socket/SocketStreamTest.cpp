#include "net/socket/SocketStreamImpl.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <thread>

#include "io/filesystem/FileSystemHelper.h"
#include "net/socket/ClientSocketImpl.h"
#include "net/socket/ServerSocketImpl.h"
#include "net/socket/SocketException.h"
#include "support/Descriptors.h"
#include "support/Eventually.h"
#include "support/Failure.h"
#include "support/LoopbackClient.h"
#include "windows/net/winsock/WinsockErrors.h"

namespace net::socket {
namespace {

using std::chrono::milliseconds;

using support::failureOf;

bool holds(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// The server's stream of one connection, and its client.
struct Pair {
    explicit Pair(const IdleBounds& bounds = {}, int clientBuffer = 0)
        : streams(mapper, bounds), listener(mapper, streams, 0, 5), client(listener.port(), clientBuffer) {
        stream = listener.accept();
    }

    windows::net::winsock::WinsockErrors mapper;
    SocketStreamFactoryImpl streams;
    ServerSocketImpl listener;
    support::LoopbackClient client;
    std::unique_ptr<SocketStream> stream;
};

TEST(SocketStreamTest, EndOfThePeerIsAZeroAndAResetIsAFailure) {
    char byte = 0;
    Pair orderly;
    orderly.client.halfClose();
    EXPECT_EQ(orderly.stream->read(&byte, 1), 0u);

    Pair rude;
    rude.client.reset();
    EXPECT_TRUE(holds(failureOf<ReadException>([&] { rude.stream->read(&byte, 1); }),
                      "System error message: Connection reset by peer. Error code: 104."));
    // Its answer goes nowhere; that must neither raise a signal nor count as a failed shutdown.
    EXPECT_THROW(rude.stream->write("answer", 6), WriteException);
    EXPECT_NO_THROW(rude.stream->shutdown(SocketStream::SEND));
}

TEST(SocketStreamTest, PeerThatDoesNothingIsGivenUpAndASlowOneIsNot) {
    const IdleBounds bounds = {milliseconds(200), milliseconds(200)};
    Pair idle(bounds, 4096);
    char buffer[64];
    EXPECT_FALSE(idle.stream->waitForInput(milliseconds(1)));
    EXPECT_TRUE(holds(failureOf<ReadException>([&] { idle.stream->read(buffer, 1); }), "Error code: 110."));
    std::string much(16 << 20, '\0');
    for (std::size_t i = 0; i < much.size(); ++i) {
        much[i] = static_cast<char>(i * 2654435761u >> 13);
    }
    EXPECT_TRUE(holds(failureOf<WriteException>([&] { idle.stream->write(much.data(), much.size()); }),
                      "Error code: 110."));

    // All of it takes twice the bound, but there is progress all the time.
    Pair slow({milliseconds(1500), milliseconds(1500)}, 65536);
    std::string taken;
    std::jthread client([&] {
        for (int i = 0; i < 30; ++i) {
            slow.client.send("x");
            taken += slow.client.receiveExactly(32768);
            std::this_thread::sleep_for(milliseconds(100));
        }
        slow.client.halfClose();
        taken += slow.client.receiveAll();
    });
    EXPECT_EQ(slow.stream->write(much.data(), much.size()), much.size());
    slow.stream->shutdown(SocketStream::SEND);
    EXPECT_NO_THROW(slow.stream->readExact(buffer, 30));
    EXPECT_EQ(slow.stream->read(buffer, 1), 0u);
    client.join();
    EXPECT_TRUE(taken == much);
}

TEST(SocketStreamTest, PeerThatReadsBreaksItsSilenceAndOneThatDoesNotRefuses) {
    Pair pair({std::chrono::hours(1), std::chrono::hours(1)}, 4096);
    EXPECT_FALSE(pair.stream->silence().refuses);
    std::jthread writer([&] {
        const std::string much(16 << 20, 'x');
        EXPECT_THROW(pair.stream->write(much.data(), much.size()), WriteException);
    });
    EXPECT_TRUE(support::eventually([&] {
        const Silence silence = pair.stream->silence();
        return silence.refuses && silence.time > milliseconds(50);
    }));
    EXPECT_TRUE(support::eventually([&] {
        pair.client.receiveExactly(SIGN_OF_LIFE);
        return pair.stream->silence().time < milliseconds(50);
    }));
    pair.stream->shutdown(SocketStream::BOTHENDS);
}

TEST(SocketStreamTest, ClosedStreamLeavesItsNumberToTheNextOwner) {
    Pair pair;
    const int number = fcntl(0, F_DUPFD_CLOEXEC, 0);
    close(number);
    pair.stream->close();
    const io::filesystem::ScopedDescriptor next(open("/dev/null", O_RDONLY | O_CLOEXEC));
    ASSERT_LT(next.get(), number);
    pair.stream->shutdown(SocketStream::BOTHENDS);
    pair.stream->close();
    pair.stream.reset();
    EXPECT_NE(fcntl(next.get(), F_GETFD), -1);
}

TEST(ClientSocketTest, KnowsThisMachineWithoutAskingAnybodyAndSaysWhatItTried) {
    const windows::net::winsock::WinsockErrors mapper;
    const SocketStreamFactoryImpl streams(mapper);
    std::uint16_t port = 0;
    {
        ServerSocketImpl listener(mapper, streams, 0, 5);
        port = listener.port();
        ClientSocketImpl client(mapper, streams);
        // One descriptor for the socket, and none for a hosts file or a name server.
        const int spare = fcntl(0, F_DUPFD_CLOEXEC, 0);
        const support::NoDescriptorsLeft none;
        close(spare);
        EXPECT_EQ(client.connect("LocalHost", port).getRemoteAddress(), "127.0.0.1");
    }
    // Nobody listens there any more.
    const std::size_t before = support::openDescriptors();
    const auto failure = [&](const char* host) {
        return failureOf<ConnectException>([&] { ClientSocketImpl(mapper, streams).connect(host, port); });
    };
    EXPECT_TRUE(holds(failure("127.0.0.1"), "Trying to connect to 127.0.0.1:" + std::to_string(port) + "."));
    EXPECT_TRUE(holds(failure("127.0.0.1"), "Connection refused. Error code: 111."));
    // An empty label is refused by the resolver itself; no name server is asked.
    EXPECT_TRUE(holds(failure(".."), "Host not found. No machine has that name. Error code: 11001."));
    EXPECT_EQ(support::openDescriptors(), before);
}

}  // namespace
}  // namespace net::socket
