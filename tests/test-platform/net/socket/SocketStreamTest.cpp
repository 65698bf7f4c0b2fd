#include "net/socket/SocketStreamImpl.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <thread>

#include "net/socket/ClientSocketImpl.h"
#include "net/socket/ServerSocketImpl.h"
#include "net/socket/SocketException.h"
#include "support/Descriptors.h"
#include "support/LoopbackClient.h"
#include "windows/net/winsock/WinsockErrors.h"

namespace net::socket {
namespace {

using std::chrono::milliseconds;

template <class Failure, class Action>
std::string messageOf(const Action& action) {
    try {
        action();
    } catch (const Failure& e) {
        return e.what();
    }
    ADD_FAILURE() << "nothing of the expected kind was thrown";
    return "";
}

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

std::string pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i * 2654435761u >> 13);
    }
    return bytes;
}

TEST(SocketStreamTest, EndOfThePeerIsAZeroAndAResetIsAFailure) {
    char byte = 0;
    Pair orderly;
    orderly.client.send("x");
    orderly.client.halfClose();
    EXPECT_EQ(orderly.stream->read(&byte, 1), 1u);
    EXPECT_EQ(orderly.stream->read(&byte, 1), 0u);

    Pair rude;
    rude.client.reset();
    const std::string message = messageOf<ReadException>([&] { rude.stream->read(&byte, 1); });
    EXPECT_EQ(message.find("Error reading data from the socket. Failed using the 'recv' system call. "
                           "Detailed information\nSocket fd: "),
              0u);
    EXPECT_NE(message.find("\nSystem error message: Connection reset by peer. Error code: 104."),
              std::string::npos);
    // Its answer goes nowhere; that must neither raise a signal nor count as a failed shutdown.
    EXPECT_THROW(rude.stream->write("answer", 6), WriteException);
    EXPECT_NO_THROW(rude.stream->shutdown(SocketStream::SEND));
}

TEST(SocketStreamTest, PeerThatDoesNothingIsGivenUpAndASlowOneIsNot) {
    const IdleBounds bounds = {milliseconds(200), milliseconds(200)};
    Pair idle(bounds, 4096);
    char buffer[64];
    EXPECT_FALSE(idle.stream->waitForInput(milliseconds(1)));
    EXPECT_NE(messageOf<ReadException>([&] { idle.stream->read(buffer, 1); }).find("Error code: 110."),
              std::string::npos);
    const std::string much = pattern(16 << 20);
    EXPECT_NE(messageOf<WriteException>([&] {
                  idle.stream->write(much.data(), much.size());
              }).find("Error code: 110."),
              std::string::npos);

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

TEST(SocketStreamTest, ReadExactTakesPiecesAndMissesNoEnd) {
    Pair pair;
    char buffer[8] = {};
    pair.stream->readExact(buffer, 0);
    std::jthread client([&] {
        for (const char* piece : {"ab", "c", "def", "gh"}) {
            pair.client.send(piece);
        }
        pair.client.halfClose();
    });
    pair.stream->readExact(buffer, 6);
    EXPECT_EQ(std::string(buffer, 6), "abcdef");
    EXPECT_EQ(messageOf<UnexpectedEofException>([&] {
                  pair.stream->readExact(buffer, 3);
              }).find("Unexpected end of file reached when read data from socket. Detailed information\n"),
              0u);
    client.join();
}

TEST(SocketStreamTest, ReadUntilStopsBehindTheMatch) {
    Pair pair;
    pair.client.send(std::string_view("a\0ab\r\nrest|", 11));
    char buffer[8];
    EXPECT_EQ(pair.stream->readUntil(buffer, sizeof(buffer), ""), 0u);
    EXPECT_EQ(pair.stream->readUntil(buffer, 7, "\r\n"), 6u);
    EXPECT_EQ(std::string(buffer, 7), std::string("a\0ab\r\n\0", 7));
    EXPECT_EQ(messageOf<ReadException>([&] {
                  pair.stream->readUntil(buffer, 5, "|");
              }).find("Buffer about to overflow. Detailed"),
              0u);
    EXPECT_EQ(pair.stream->readUntil(buffer, 3, "|"), 1u);
    pair.client.halfClose();
    EXPECT_EQ(messageOf<ReadException>([&] {
                  pair.stream->readUntil(buffer, 3, "|");
              }).find("Error reading from socket. Could not find the match string in the stream.  Detailed"),
              0u);
    EXPECT_THROW(pair.stream->readUntil(nullptr, 3, "|"), PreconditionException);
    EXPECT_THROW(pair.stream->readUntil(buffer, 3, nullptr), PreconditionException);
    EXPECT_THROW(pair.stream->readUntil(buffer, 3, "four"), PreconditionException);
}

TEST(SocketStreamTest, SizesBeyondTwoGigabytesAreRefusedBeforeAnythingIsTouched) {
    Pair pair;
    char byte = 0;
    EXPECT_EQ(messageOf<PreconditionException>([&] { pair.stream->read(&byte, 2147483648); }),
              "Cannot read an amount of data with that size. The data size must be between 0 and 2147483647");
    EXPECT_EQ(messageOf<PreconditionException>([&] { pair.stream->write(&byte, 2147483648); }),
              "Cannot send an amount of data with that size. The data size must be between 0 and 2147483647");
    EXPECT_THROW(pair.stream->readUntil(&byte, 2147483648, "x"), PreconditionException);
}

TEST(SocketStreamTest, ClosedStreamLeavesItsNumberToTheNextOwner) {
    Pair pair;
    const int next = fcntl(0, F_DUPFD_CLOEXEC, 0);
    close(next);
    pair.stream->close();
    int others[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, others), 0);
    ASSERT_TRUE(others[0] < next || others[1] < next);
    pair.stream->shutdown(SocketStream::BOTHENDS);
    pair.stream->close();
    pair.stream.reset();
    char byte = 'x';
    EXPECT_EQ(write(others[0], &byte, 1), 1);
    EXPECT_EQ(read(others[1], &byte, 1), 1);
    close(others[0]);
    close(others[1]);
}

TEST(SocketStreamTest, ShutdownFromAnotherThreadEndsABlockedRead) {
    Pair pair;
    pair.client.send("x");
    std::jthread stopper([&] { pair.stream->shutdown(SocketStream::RECEIVE); });
    char buffer[2];
    while (pair.stream->read(buffer, 2) != 0) {
    }
    stopper.join();
    // The other direction is still there for an answer.
    pair.stream->write("answer", 6);
    pair.stream->shutdown(SocketStream::SEND);
    EXPECT_EQ(pair.client.receiveAll(), "answer");
}

TEST(SocketStreamTest, FactoryClosesADescriptorThatMakesNoStream) {
    const windows::net::winsock::WinsockErrors mapper;
    const std::size_t before = support::openDescriptors();
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[1]);
    EXPECT_THROW(SocketStreamFactoryImpl(mapper).create(ends[0]), ChangeStateException);
    EXPECT_EQ(support::openDescriptors(), before);
}

TEST(ClientSocketTest, ConnectsOnceAndTellsBothAddresses) {
    const windows::net::winsock::WinsockErrors mapper;
    const SocketStreamFactoryImpl streams(mapper);
    ServerSocketImpl listener(mapper, streams, 0, 5);
    ClientSocketImpl client(mapper, streams);
    const SocketStream& ours = client.connect("127.0.0.1", listener.port());
    const std::unique_ptr<SocketStream> theirs = listener.accept();
    EXPECT_EQ(ours.getRemoteAddress(), "127.0.0.1");
    EXPECT_EQ(ours.getLocalAddress(), "127.0.0.1");
    EXPECT_EQ(theirs->getRemoteAddress(), "127.0.0.1");
    EXPECT_EQ(theirs->getLocalAddress(), "127.0.0.1");
}

TEST(ClientSocketTest, KnowsThisMachineWithoutAskingAnybody) {
    const windows::net::winsock::WinsockErrors mapper;
    const SocketStreamFactoryImpl streams(mapper);
    ServerSocketImpl listener(mapper, streams, 0, 5);
    for (const char* name : {"localhost", "LocalHost"}) {
        ClientSocketImpl client(mapper, streams);
        // One descriptor for the socket, and none for a hosts file or a name server.
        const int spare = fcntl(0, F_DUPFD_CLOEXEC, 0);
        const support::NoDescriptorsLeft none;
        close(spare);
        EXPECT_EQ(client.connect(name, listener.port()).getRemoteAddress(), "127.0.0.1");
    }
}

TEST(ClientSocketTest, SaysWhatItTriedAndKeepsNoDescriptor) {
    const windows::net::winsock::WinsockErrors mapper;
    const SocketStreamFactoryImpl streams(mapper);
    std::uint16_t freePort = 0;
    { freePort = ServerSocketImpl(mapper, streams, 0, 5).port(); }
    const std::size_t before = support::openDescriptors();
    const std::string port = std::to_string(freePort);
    std::string message = messageOf<ConnectException>(
        [&] { ClientSocketFactoryImpl(mapper, streams).create()->connect("127.0.0.1", freePort); });
    EXPECT_EQ(message.substr(0, message.find("\nSocketStream")),
              "Error connecting socket.\nFailed using the 'connect' system call.\n"
              "Trying to connect to 127.0.0.1:" +
                  port + ".\nDetailed information:\nHost: 127.0.0.1\nPort: " + port);
    EXPECT_NE(message.find("\nSystem error message: Connection refused. Error code: 111."),
              std::string::npos);

    // An empty label is refused by the resolver itself; no name server is asked.
    message = messageOf<ConnectException>([&] { ClientSocketImpl(mapper, streams).connect("..", 1); });
    EXPECT_EQ(
        message.find("Error converting hostname .. to an IP address.\n"
                     "Failed using the 'gethostbyname' system call.\nDetailed information:\nHost: ..\n"),
        0u);
    EXPECT_NE(
        message.find("System error message: Host not found. No machine has that name. Error code: 11001."),
        std::string::npos)
        << message;
    EXPECT_EQ(support::openDescriptors(), before);
}

}  // namespace
}  // namespace net::socket
