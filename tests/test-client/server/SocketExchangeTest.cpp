#include "server/SocketExchange.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>

#include <thread>

#include "support/ClientRun.h"
#include "system/Program.h"

namespace halvern::morvane::client {
namespace {

using support::clientFailureOf;
using testing::HasSubstr;

// A listener that plays one connection after another as the test says, on the loopback of the family.
class Peer : public systemtest::BoundPort {
public:
    explicit Peer(std::function<void(int connection)> play, int family = AF_INET)
        : BoundPort(family), _play(std::move(play)) {
        listen();
        _thread = std::thread([this] {
            for (int connection = ::accept(descriptor(), nullptr, nullptr); connection >= 0;
                 connection = ::accept(descriptor(), nullptr, nullptr)) {
                _play(connection);
                ::close(connection);
            }
        });
    }
    ~Peer() {
        ::shutdown(descriptor(), SHUT_RDWR);
        _thread.join();
    }

    std::string ask(const std::string& request, const std::string& host = "127.0.0.1",
                    std::chrono::milliseconds timeout = std::chrono::seconds(60)) {
        return SocketExchange({{host, port()}, timeout}).ask(request);
    }

private:
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
    SocketExchange often({{"127.0.0.1", peer.port()}, {}});
    EXPECT_EQ(often.ask("one") + often.ask("two"), "onetwo");
    try {
        Peer six(echo, AF_INET6);
        EXPECT_EQ(six.ask("hello", "::1"), "hello");
    } catch (const std::runtime_error&) {
        GTEST_SKIP() << "This machine has no IPv6";
    }
}

TEST(SocketExchangeTest, APeerThatDoesNotPlayByTheRulesEndsInWordsAndNotInAWait) {
    const std::string large(50'000'000, 'x');
    const auto reset = [](int connection) {
        const linger now = {1, 0};
        ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
    };
    const std::tuple<std::string, std::function<void(int)>, const char*> cases[] = {
        {large, readToTheEnd, "without an answer"},
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
    for (const auto& [request, play, words] : cases) {
        Peer peer(play);
        const Failure failure = clientFailureOf([&, &request = request] { peer.ask(request); });
        EXPECT_EQ(failure.code, ExitCode::UNREACHABLE);
        EXPECT_THAT(failure.message, HasSubstr(words));
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
    SocketExchange exchange({{"127.0.0.1", endless.port()}, {}}, std::make_unique<Scarce>(), 1'000'000);
    const Failure failure = clientFailureOf([&] { exchange.ask("x"); });
    EXPECT_EQ(failure.code, ExitCode::UNREACHABLE);
    EXPECT_THAT(failure.message, HasSubstr("memory of this machine"));
}

TEST(SocketExchangeTest, NobodyThereAndUnknownHostsAreTold) {
    const systemtest::BoundPort deaf;  // bound, and nobody listens
    const std::pair<Address, const char*> cases[] = {
        {{"127.0.0.1", deaf.port()}, "No server listens at 127.0.0.1:"},
        {{"256.0.0.1.", 1}, "'256.0.0.1.' isn't known"},
    };
    for (const auto& [address, words] : cases) {
        const Failure failure = clientFailureOf([&address = address] {
            SocketExchange({address, {}}).ask("x");
        });
        EXPECT_EQ(failure.code, ExitCode::UNREACHABLE);
        EXPECT_THAT(failure.message, HasSubstr(words));
    }
}

TEST(SocketExchangeTest, TheTimeoutEndsAWaitAndSoDoesCtrlCWhichIsTheSystemsAgainAfterOne) {
    Peer peer([](int connection) {
        if (readToTheEnd(connection) == "interrupt") {
            ::kill(::getpid(), SIGINT);
        }
        pollfd hangup = {connection, 0, 0};
        ::poll(&hangup, 1, 60000);
    });
    ::signal(SIGINT, SIG_DFL);  // a shell that runs tests in the background has it ignored
    // No words of the peer's will ever come; what ends the wait can only be the timeout.
    const Failure silent =
        clientFailureOf([&] { peer.ask("x", "127.0.0.1", std::chrono::milliseconds(20)); });
    EXPECT_EQ(silent.code, ExitCode::UNREACHABLE);
    EXPECT_THAT(silent.hint, HasSubstr("--timeout"));
    const Failure failure = clientFailureOf([&] { peer.ask("interrupt"); });
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
    EXPECT_FALSE(Interrupts().requested());
}

}  // namespace
}  // namespace halvern::morvane::client
