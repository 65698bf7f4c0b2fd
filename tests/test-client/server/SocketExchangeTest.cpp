#include "server/SocketExchange.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "support/ClientRun.h"

namespace halvern::morvane::client {
namespace {

using support::clientFailureOf;
using testing::HasSubstr;

// A listener that plays one connection after another as the test says, on the loopback of the family.
class Peer {
public:
    explicit Peer(std::function<void(int connection)> play, int family = AF_INET)
        : _socket(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)), _play(std::move(play)) {
        sockaddr_storage address = {};
        address.ss_family = static_cast<sa_family_t>(family);
        if (family == AF_INET6) {
            reinterpret_cast<sockaddr_in6&>(address).sin6_addr = in6addr_loopback;
        } else {
            reinterpret_cast<sockaddr_in&>(address).sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        }
        socklen_t size = sizeof(address);
        isThere =
            ::bind(_socket, reinterpret_cast<sockaddr*>(&address), size) == 0 && ::listen(_socket, 5) == 0;
        ::getsockname(_socket, reinterpret_cast<sockaddr*>(&address), &size);
        port = ntohs(reinterpret_cast<sockaddr_in&>(address).sin_port);  // at the same place in both families
        _thread = std::thread([this] {
            for (int connection = ::accept(_socket, nullptr, nullptr); connection >= 0;
                 connection = ::accept(_socket, nullptr, nullptr)) {
                _play(connection);
                ::close(connection);
            }
        });
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() {
        ::shutdown(_socket, SHUT_RDWR);
        _thread.join();
        ::close(_socket);
    }

    std::string ask(const std::string& request, const std::string& host = "127.0.0.1",
                    std::chrono::milliseconds timeout = std::chrono::seconds(60)) {
        return SocketExchange({{host, port}, timeout}).ask(request);
    }

    bool isThere = false;
    std::uint16_t port = 0;

private:
    const int _socket;
    const std::function<void(int)> _play;
    std::thread _thread;
};

std::string readToTheEnd(int connection) {
    std::string all;
    char buffer[65536];
    for (ssize_t bytes = ::read(connection, buffer, sizeof(buffer)); bytes > 0;
         bytes = ::read(connection, buffer, sizeof(buffer))) {
        all.append(buffer, static_cast<std::size_t>(bytes));
    }
    return all;
}

void write(int connection, const std::string& bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = ::send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return;
        }
        sent += static_cast<std::size_t>(count);
    }
}

void echo(int connection) { write(connection, readToTheEnd(connection)); }

TEST(SocketExchangeTest, LargeRequestsAndAnswersCrossWholeByAddressNameAndIPv6) {
    std::string large(20'000'000, 'x');
    for (std::size_t i = 0; i < large.size(); i += 1000) {
        large[i] = static_cast<char>(i / 1000);
    }
    Peer peer(echo);
    for (const char* host : {"127.0.0.1", "LocalHost"}) {
        EXPECT_TRUE(peer.ask(large, host) == large) << host;
    }
    SocketExchange often({{"127.0.0.1", peer.port}, {}});
    EXPECT_EQ(often.ask("one") + often.ask("two"), "onetwo");
    Peer six(echo, AF_INET6);
    if (!six.isThere) {
        GTEST_SKIP() << "This machine has no IPv6";
    }
    EXPECT_EQ(six.ask("hello", "::1"), "hello");
}

TEST(SocketExchangeTest, APeerThatDoesNotPlayByTheRulesEndsInWordsAndNotInAWait) {
    const std::string large(50'000'000, 'x');
    const auto reset = [](int connection) {
        const linger now = {1, 0};
        ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
    };
    struct Case {
        std::string request;
        std::function<void(int)> play;
        std::string words;
    };
    const Case cases[] = {
        {large, [](int connection) { readToTheEnd(connection); }, "without an answer"},
        {large, [](int) {}, "broke off"},
        {large, reset, "broke off"},
        {"x",
         [&](int connection) {
             readToTheEnd(connection);
             write(connection, "half an ans");
             reset(connection);
         },
         "broke off"},
    };
    for (const Case& each : cases) {
        Peer peer(each.play);
        const Failure failure = clientFailureOf([&] { peer.ask(each.request); });
        EXPECT_EQ(failure.code, ExitCode::UNREACHABLE);
        EXPECT_THAT(failure.message, HasSubstr(each.words));
    }
    // Both directions full at once: neither side may wait for the other.
    Peer hasty([&](int connection) {
        write(connection, large);
        readToTheEnd(connection);
    });
    EXPECT_EQ(hasty.ask(large).size(), large.size());
}

TEST(SocketExchangeTest, AnAnswerWithoutEndEndsBeforeTheMemoryDoes) {
    struct Scarce final : platform::memory::MemoryStatus {
        std::uint64_t available() const override { return 10'000'000; }
        std::uint64_t total() const override { return 10'000'000; }
    };
    Peer endless([](int connection) {
        const std::string piece(1'000'000, 'x');
        while (::send(connection, piece.data(), piece.size(), MSG_NOSIGNAL) > 0) {
        }
    });
    SocketExchange exchange({{"127.0.0.1", endless.port}, {}}, std::make_unique<Scarce>(), 1'000'000);
    const Failure failure = clientFailureOf([&] { exchange.ask("x"); });
    EXPECT_EQ(failure.code, ExitCode::UNREACHABLE);
    EXPECT_THAT(failure.message, HasSubstr("memory of this machine"));
}

TEST(SocketExchangeTest, ASilentServerIsGivenUpAfterTheTimeout) {
    std::atomic<bool> isOver = false;
    Peer peer([&](int connection) {
        readToTheEnd(connection);
        isOver.wait(false);
    });
    // No words of the peer's will ever come; what ends the wait can only be the timeout.
    const Failure failure =
        clientFailureOf([&] { peer.ask("x", "127.0.0.1", std::chrono::milliseconds(20)); });
    isOver = true;
    isOver.notify_all();
    EXPECT_EQ(failure.code, ExitCode::UNREACHABLE);
    EXPECT_THAT(failure.message + failure.hint, HasSubstr("--timeout"));
}

TEST(SocketExchangeTest, NobodyThereAndUnknownHostsAreTold) {
    std::uint16_t port = 0;
    {
        const Peer gone(echo);
        port = gone.port;
    }
    const Failure refused = clientFailureOf([&] { SocketExchange({{"127.0.0.1", port}, {}}).ask("x"); });
    EXPECT_EQ(refused.code, ExitCode::UNREACHABLE);
    EXPECT_THAT(refused.message, HasSubstr("No server listens at 127.0.0.1:"));
    const Failure unknown = clientFailureOf([&] { SocketExchange({{"256.0.0.1.", 1}, {}}).ask("x"); });
    EXPECT_EQ(unknown.code, ExitCode::UNREACHABLE);
    EXPECT_THAT(unknown.message, HasSubstr("'256.0.0.1.' isn't known"));
}

TEST(SocketExchangeTest, CtrlCEndsTheWaitAndASecondOneIsTheSystemsAgain) {
    std::atomic<bool> isOver = false;
    Peer peer([&](int connection) {
        readToTheEnd(connection);
        ::kill(::getpid(), SIGINT);
        isOver.wait(false);
    });
    const Failure failure = clientFailureOf([&] { peer.ask("x"); });
    isOver = true;
    isOver.notify_all();
    EXPECT_EQ(failure.code, ExitCode::INTERRUPTED);
    EXPECT_THAT(failure.hint, HasSubstr("may have run"));

    {
        const Interrupts outer;
        {
            const Interrupts inner;
            ::raise(SIGINT);
            EXPECT_EQ(clientFailureOf([&] { inner.check(); }).code, ExitCode::INTERRUPTED);
        }
        EXPECT_TRUE(outer.requested()) << "Noted until the last has gone";
        struct sigaction now = {};
        ::sigaction(SIGINT, nullptr, &now);
        EXPECT_EQ(now.sa_handler, SIG_DFL);
    }
    const Interrupts fresh;
    EXPECT_FALSE(fresh.requested());
}

}  // namespace
}  // namespace halvern::morvane::client
