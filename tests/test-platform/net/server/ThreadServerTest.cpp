#include "net/server/ThreadServer.h"

#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <fstream>
#include <functional>
#include <future>
#include <mutex>
#include <new>
#include <set>
#include <thread>

#include "net/socket/SocketException.h"
#include "platform/thread/ThreadException.h"
#include "platform/thread/ThreadFactoryImpl.h"
#include "support/Descriptors.h"
#include "support/LoopbackClient.h"
#include "support/WaitUntil.h"
#include "util/Converter.h"
#include "util/MethodCaller.h"

namespace net::server {
namespace {

using net::socket::IdleBounds;
using net::socket::SocketException;
using net::socket::SocketStream;

// Long enough for a stop that waits for its clients' patience to be noticed.
constexpr IdleBounds PATIENT = {std::chrono::hours(1), std::chrono::hours(1)};

// What the clients of one test share.
struct Control {
    void enter(std::uint32_t id) {
        const std::lock_guard guard(mutex);
        EXPECT_TRUE(ids.insert(id).second) << "number " << id << " was given twice";
        mostAlive = std::max(mostAlive, ++alive);
    }
    void leave() {
        const std::lock_guard guard(mutex);
        --alive;
    }

    std::mutex mutex;
    std::set<std::uint32_t> ids;
    int alive = 0;  // from building to deletion
    int mostAlive = 0;
    std::atomic<int> buildsToFail = 0;
    std::atomic<int> answering = 0;
    std::atomic<int> stops = 0;
    std::atomic<bool> mayAnswer = true;
    std::size_t answerSize = 0;  // 0: the answer is the request
};

class EchoClient final : public Connection {
public:
    EchoClient(const platform::thread::ThreadFactory& factory, std::uint32_t id, Control* control)
        : Connection(factory, id), _control(control) {
        if (_control->buildsToFail > 0) {
            --_control->buildsToFail;
            throw std::bad_alloc();
        }
        _control->enter(id);
    }
    ~EchoClient() override { _control->leave(); }

    void run() override {
        const util::MethodCaller0<Connection, void (Connection::*)()> quitter(*this, &Connection::quit);
        try {
            std::string request;
            char buffer[1024];
            while (const std::size_t bytes = _socketStream->read(buffer, sizeof(buffer))) {
                request.append(buffer, bytes);
            }
            ++_control->answering;
            _control->mayAnswer.wait(false);
            if (_control->answerSize != 0) {
                request.assign(_control->answerSize, 'y');
            }
            _socketStream->write(request.data(), request.size());
            _socketStream->shutdown(SocketStream::SEND);
        } catch (const SocketException&) {
        }
        _socketStream->close();
    }
    void stop() override { ++_control->stops; }

private:
    Control* const _control;
};

using EchoServer = ThreadServer<EchoClient, Control*>;

class CountingLog final : public ThreadServerLog {
public:
    void log(const char* text) noexcept override {
        const std::lock_guard guard(_mutex);
        _texts.emplace_back(text);
    }
    std::vector<std::string> texts() const {
        const std::lock_guard guard(_mutex);
        return _texts;
    }

private:
    mutable std::mutex _mutex;
    std::vector<std::string> _texts;
};

// A thread that the system has no room for.
class UnstartableThread final : public platform::thread::InheritableThreadImpl {
public:
    UnstartableThread(const platform::thread::ThreadFactory& factory, std::function<void()> meanwhile)
        : InheritableThreadImpl(factory), _meanwhile(std::move(meanwhile)) {}
    void start() override {
        _meanwhile();
        throw platform::thread::ThreadException("No more threads.");
    }
    void run() override {}

private:
    const std::function<void()> _meanwhile;
};

class SparseThreadFactory final : public platform::thread::ThreadFactory {
public:
    // meanwhile is what happens while a thread fails to start.
    explicit SparseThreadFactory(
        std::set<int> unstartable, std::function<void()> meanwhile = [] {})
        : _unstartable(std::move(unstartable)), _meanwhile(std::move(meanwhile)) {}
    std::unique_ptr<platform::thread::Thread> create(platform::thread::Runnable& runnable) const override {
        if (_unstartable.count(++_made) != 0) {
            return std::make_unique<UnstartableThread>(_factory, _meanwhile);
        }
        return _factory.create(runnable);
    }

private:
    platform::thread::ThreadFactoryImpl _factory;
    const std::set<int> _unstartable;
    const std::function<void()> _meanwhile;
    mutable std::atomic<int> _made = 0;
};

class ThreadServerTest : public testing::Test {
protected:
    ~ThreadServerTest() override { EXPECT_EQ(control.alive, 0); }

    platform::thread::ThreadFactoryImpl threads;
    Control control;
    CountingLog log;
};

TEST_F(ThreadServerTest, ManyClientsShareFewPlacesAndLeaveNothingBehind) {
    constexpr int CLIENTS = 8;
    constexpr int REQUESTS = 40;
    const std::size_t descriptors = support::openDescriptors();
    std::jthread([] {}).join();  // the first thread of a process may bring one of the run time's own with it
    const std::size_t running = support::runningThreads();
    for (const int places : {1, 3}) {
        EchoServer server(threads, 0, places, 100, &control, &log);
        server.start();
        {
            std::vector<std::jthread> clients;
            clients.reserve(CLIENTS);
            for (int c = 0; c < CLIENTS; ++c) {
                clients.emplace_back([&, c] {
                    for (int i = 0; i < REQUESTS; ++i) {
                        const std::string request = std::to_string(c) + ":" + std::to_string(i);
                        EXPECT_EQ(support::LoopbackClient(server.port()).ask(request), request);
                    }
                });
            }
        }
        server.stop();
        server.stop();
        server.join();
        EXPECT_LE(control.mostAlive, places);
        EXPECT_EQ(control.alive, 0);
        EXPECT_EQ(*control.ids.begin(), 1u);
        EXPECT_EQ(*control.ids.rbegin(), static_cast<std::uint32_t>(CLIENTS * REQUESTS));
        control.ids.clear();
    }
    EXPECT_EQ(support::openDescriptors(), descriptors);
    EXPECT_TRUE(support::waitUntil([&] { return support::runningThreads() == running; }));
    // One failing accept for each server that was stopped.
    EXPECT_EQ(log.texts().size(), 2u);
}

TEST_F(ThreadServerTest, StopEndsClientsThatWouldNotEndByThemselves) {
    const std::size_t descriptors = support::openDescriptors();
    {
        control.answerSize = 64 << 20;
        EchoServer server(threads, 0, 3, 100, &control, &log, PATIENT);
        server.start();
        const support::LoopbackClient silent(server.port());
        support::LoopbackClient halfWay(server.port());
        halfWay.send("half a requ");
        support::LoopbackClient notReading(server.port(), 4096);
        notReading.halfClose();
        const support::LoopbackClient waiting(server.port());  // no place is left for it
        ASSERT_TRUE(support::waitUntil([&] { return control.answering == 1; }));
        server.stop();
        EXPECT_EQ(control.stops, 3);
        EXPECT_EQ(control.alive, 0);
    }
    EXPECT_EQ(support::openDescriptors(), descriptors);
}

TEST_F(ThreadServerTest, ClientThatIsBeingAnsweredWhenTheServerStopsGetsItsAnswer) {
    control.mayAnswer = false;
    EchoServer server(threads, 0, 2, 100, &control, &log, PATIENT);
    server.start();
    support::LoopbackClient client(server.port());
    client.send("request");
    client.halfClose();
    ASSERT_TRUE(support::waitUntil([&] { return control.answering == 1; }));
    std::future<void> stopping = std::async(std::launch::async, [&] { server.stop(); });
    EXPECT_TRUE(support::waitUntil([&] { return control.stops == 1; }));
    control.mayAnswer = true;
    control.mayAnswer.notify_all();
    EXPECT_EQ(client.receiveAll(), "request");
    stopping.get();
}

TEST_F(ThreadServerTest, ClientThatCannotBeMadeCostsNeitherItsPlaceNorTheServer) {
    // Threads 1 and 2 are the server's own; 3 is that of the client that memory runs out for.
    SparseThreadFactory sparse({4});
    control.buildsToFail = 1;
    EchoServer server(sparse, 0, 1, 100, &control, &log);
    server.start();
    for (int lost = 0; lost < 2; ++lost) {
        EXPECT_EQ(support::LoopbackClient(server.port()).receiveAll(), "");
    }
    EXPECT_EQ(support::LoopbackClient(server.port()).ask("x"), "x");
    server.stop();
    EXPECT_EQ(control.ids, (std::set<std::uint32_t>{2, 3}));
    const std::vector<std::string> texts = log.texts();
    ASSERT_EQ(texts.size(), 3u);
    EXPECT_EQ(texts[0], "bad alloc in ThreadServer::_create_clients");
    EXPECT_EQ(texts[1], "No more threads.");
    EXPECT_EQ(texts[2].find("Error accepting a connection. Failed using the accept system call. "), 0u);
}

TEST_F(ThreadServerTest, ClientWaitsWhileThereAreNoDescriptorsAndTheServerDoesNotSpin) {
    EchoServer server(threads, 0, 1, 100, &control, &log);
    support::LoopbackClient client(server.port());
    {
        const support::NoDescriptorsLeft limit;
        server.start();
        ASSERT_TRUE(support::waitUntil([&] { return log.texts().size() >= 2; }));
        EXPECT_LE(log.texts().size(), 20u);
        EXPECT_NE(log.texts()[0].find("Too many open files"), std::string::npos);
    }
    EXPECT_EQ(client.ask("x"), "x");
    server.stop();
}

TEST_F(ThreadServerTest, PortOfAnotherListenerIsRefusedAndNothingIsLeftBehind) {
    const windows::net::winsock::WinsockErrors mapper;
    const net::socket::SocketStreamFactoryImpl streams(mapper);
    net::socket::ServerSocketImpl other(mapper, streams, 0, 5);
    const std::size_t descriptors = support::openDescriptors();
    try {
        const EchoServer server(threads, other.port(), 1, 100, &control, nullptr);
        FAIL() << "the port was taken";
    } catch (const net::socket::PortAlreadyInUseException& e) {
        EXPECT_EQ(e.what(), "The port, " + std::to_string(other.port()) + ", is already in use.");
    }
    EXPECT_THROW(EchoServer(threads, 0, -1, 100, &control, nullptr), util::ConverterException);
    EXPECT_EQ(support::openDescriptors(), descriptors);
}

TEST_F(ThreadServerTest, PortTestThatReachesItselfFindsThePortFree) {
    // A network of its own, in which every caller gets the one port that is also the server's.
    constexpr std::uint16_t PORT = 40001;
    bool isApart = false;
    std::jthread([&] {
        if (unshare(CLONE_NEWNET) != 0) {
            return;
        }
        const int any = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ifreq loopback = {};
        std::strcpy(loopback.ifr_name, "lo");
        loopback.ifr_flags = IFF_UP;
        isApart = ioctl(any, SIOCSIFFLAGS, &loopback) == 0;
        close(any);
        std::ofstream range("/proc/sys/net/ipv4/ip_local_port_range");
        range << PORT << " " << PORT << std::flush;
        isApart = isApart && range.good();
        for (int round = 0; isApart && round < 2; ++round) {
            EXPECT_NO_THROW(EchoServer(threads, PORT, 1, 5, &control, nullptr));
        }
    }).join();
    if (!isApart) {
        GTEST_SKIP() << "This process may not have a network of its own.";
    }
}

TEST_F(ThreadServerTest, StopsWithoutHavingStartedAndWhenHalfOfItCannotStart) {
    EchoServer neverStarted(threads, 0, 2, 100, &control, nullptr);
    neverStarted.stop();
    neverStarted.join();

    // The half that runs serves a client, which nobody reaps, in the only place.
    std::uint16_t port = 0;
    const SparseThreadFactory sparse(
        {2}, [&port] { EXPECT_EQ(support::LoopbackClient(port).ask("early"), "early"); });
    EchoServer halfStarted(sparse, 0, 1, 100, &control, nullptr);
    port = halfStarted.port();
    EXPECT_THROW(halfStarted.start(), platform::thread::ThreadException);
    EXPECT_THROW(support::LoopbackClient(halfStarted.port()), std::system_error);
}

}  // namespace
}  // namespace net::server
