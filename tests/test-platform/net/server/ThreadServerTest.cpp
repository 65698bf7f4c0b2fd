#include "net/server/ThreadServer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
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
#include "support/Eventually.h"
#include "support/LoopbackClient.h"
#include "util/MethodCaller.h"

namespace net::server {
namespace {

using net::socket::SocketException;
using platform::thread::ThreadException;
using support::eventually;
using support::LoopbackClient;

// Long enough for a stop that waits for its clients' patience to be noticed.
constexpr net::socket::IdleBounds PATIENT = {std::chrono::hours(1), std::chrono::hours(1)};

// What the clients of one test share.
struct Control {
    std::mutex mutex;
    std::set<std::uint32_t> ids;  // of all clients that were ever built
    int alive = 0;                // from building to deletion
    int mostAlive = 0;
    int gone = 0;
    std::atomic<int> buildsToFail = 0;
    std::atomic<int> answering = 0;
    std::atomic<int> stops = 0;
    std::atomic<bool> mayAnswer = true;
    std::atomic<bool> mayQuit = true;
    std::atomic<int> closed = 0;
    std::atomic<int> looks = 0;  // whether a client is at work
    std::vector<std::uint32_t> gaveWay;
    std::vector<int> goneBefore;  // each of these
    std::size_t answerSize = 0;   // 0: the answer is the request
};

class EchoClient final : public Connection {
public:
    EchoClient(const platform::thread::ThreadFactory& factory, std::uint32_t id, Control* control)
        : Connection(factory, id), _control(control) {
        if (_control->buildsToFail > 0) {
            --_control->buildsToFail;
            throw std::bad_alloc();
        }
        const std::lock_guard guard(_control->mutex);
        EXPECT_TRUE(_control->ids.insert(id).second) << "number " << id << " was given twice";
        _control->mostAlive = std::max(_control->mostAlive, ++_control->alive);
    }
    ~EchoClient() override {
        const std::lock_guard guard(_control->mutex);
        --_control->alive;
        ++_control->gone;
    }

    void run() override {
        const util::MethodCaller0<Connection, void (Connection::*)()> quitter(*this, &Connection::quit);
        try {
            std::string request;
            char buffer[1024];
            while (const std::size_t bytes = _socketStream->read(buffer, sizeof(buffer))) {
                request.append(buffer, bytes);
            }
            _isAtWork = true;
            ++_control->answering;
            _control->mayAnswer.wait(false);
            _isAtWork = false;
            if (_control->answerSize != 0) {
                request.assign(_control->answerSize, 'y');
            }
            _socketStream->write(request.data(), request.size());
            _socketStream->shutdown(net::socket::SocketStream::SEND);
        } catch (const SocketException&) {
        }
        _socketStream->close();
        ++_control->closed;
        _control->mayQuit.wait(false);
    }
    void stop() override { ++_control->stops; }
    void giveWay(std::chrono::milliseconds) override {
        const std::lock_guard guard(_control->mutex);
        _control->gaveWay.push_back(_id);
        _control->goneBefore.push_back(_control->gone);
    }
    bool isAtWork() const override {
        ++_control->looks;
        return _isAtWork;
    }

private:
    Control* const _control;
    std::atomic<bool> _isAtWork = false;
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

// One of its threads, counted from 1, doesn't start, and something happens meanwhile.
class SparseThreadFactory final : public platform::thread::ThreadFactory {
public:
    explicit SparseThreadFactory(
        int unstartable, std::function<void()> meanwhile = [] {})
        : _unstartable(unstartable), _meanwhile(std::move(meanwhile)) {}
    std::unique_ptr<platform::thread::Thread> create(platform::thread::Runnable& runnable) const override {
        struct Unstartable final : platform::thread::InheritableThreadImpl {
            Unstartable(const platform::thread::ThreadFactory& factory,
                        const std::function<void()>& meanwhile)
                : InheritableThreadImpl(factory), meanwhile(meanwhile) {}
            void start() override {
                meanwhile();
                throw ThreadException("No more threads.");
            }
            void run() override {}
            const std::function<void()>& meanwhile;
        };
        if (++_made == _unstartable) {
            return std::make_unique<Unstartable>(_factory, _meanwhile);
        }
        return _factory.create(runnable);
    }

private:
    platform::thread::ThreadFactoryImpl _factory;
    const int _unstartable;
    const std::function<void()> _meanwhile;
    mutable std::atomic<int> _made = 0;
};

class ThreadServerTest : public testing::Test {
protected:
    ~ThreadServerTest() override {
        EXPECT_EQ(control.alive, 0);
        EXPECT_EQ(support::openDescriptors(), descriptors);
        EXPECT_TRUE(eventually([&] { return support::runningThreads() == running; }));
    }

    // So many clients have been built.
    bool built(std::size_t number) {
        return eventually([&] {
            const std::lock_guard guard(control.mutex);
            return control.ids.size() == number;
        });
    }
    // Lets those go on that wait to answer or to quit.
    static void allow(std::atomic<bool>& what) {
        what = true;
        what.notify_all();
    }

    platform::thread::ThreadFactoryImpl threads;
    Control control;
    CountingLog log;
    const std::size_t descriptors = support::openDescriptors();
    const std::size_t running = [] {
        std::jthread([] {}).join();  // the first thread of a process may bring one of the run time's own
        return support::runningThreads();
    }();
};

TEST_F(ThreadServerTest, ManyClientsShareFewPlaces) {
    constexpr int CLIENTS = 8;
    constexpr int REQUESTS = 40;
    for (const int places : {1, 3}) {
        EchoServer server(threads, 0, places, 100, &control, &log);
        server.start();
        {
            std::vector<std::jthread> clients;
            for (int c = 0; c < CLIENTS; ++c) {
                clients.emplace_back([&, c] {
                    for (int i = 0; i < REQUESTS; ++i) {
                        const std::string request = std::to_string(c) + ":" + std::to_string(i);
                        EXPECT_EQ(LoopbackClient(server.port()).ask(request), request);
                    }
                });
            }
        }
        server.stop();
        server.stop();
        server.join();
        EXPECT_LE(control.mostAlive, places);
        EXPECT_EQ(*control.ids.begin(), 1u);
        EXPECT_EQ(*control.ids.rbegin(), static_cast<std::uint32_t>(CLIENTS * REQUESTS));
        control.ids.clear();
    }
    // One failing accept for each server that was stopped.
    EXPECT_EQ(log.texts().size(), 2u);
}

TEST_F(ThreadServerTest, StopEndsClientsThatWouldNotEndByThemselves) {
    control.answerSize = 64 << 20;
    EchoServer server(threads, 0, 3, 100, &control, &log, PATIENT);
    server.start();
    const LoopbackClient silent(server.port());
    LoopbackClient halfWay(server.port());
    halfWay.send("half a requ");
    LoopbackClient notReading(server.port(), 4096);
    notReading.halfClose();
    const LoopbackClient waiting(server.port());  // no place is left for it
    ASSERT_TRUE(eventually([&] { return control.answering == 1; }));
    server.stop();
    EXPECT_EQ(control.stops, 3);
    EXPECT_EQ(control.alive, 0);
}

TEST_F(ThreadServerTest, WhoeverOnlyHoldsAPlaceGivesWayToOneThatWaits) {
    EchoServer server(threads, 0, 1, 100, &control, &log, PATIENT);
    server.start();
    const std::string large(32 << 20, 'x');
    std::uint32_t id = 0;
    for (const std::string& sent : {std::string(), large}) {
        SCOPED_TRACE(sent.size());
        LoopbackClient holder(server.port(), 4096);
        ++id;
        EXPECT_TRUE(holder.send(sent));
        if (sent == large) {
            holder.halfClose();
            ASSERT_TRUE(eventually([&] { return control.answering > 0; }));
        }
        EXPECT_EQ(LoopbackClient(server.port()).ask("x"), "x");
        const std::lock_guard guard(control.mutex);
        EXPECT_EQ(control.gaveWay.back(), id++);
        control.answering = 0;
    }
    server.stop();
}

TEST_F(ThreadServerTest, AsManyGiveWayAtOnceAsWaitLongestSilentFirstAndNoneThatIsBeingServed) {
    const std::chrono::milliseconds none{0};
    control.mayAnswer = false;
    EchoServer server(threads, 0, 4, 100, &control, &log, PATIENT, {none, none, none, none});
    server.start();
    LoopbackClient served(server.port());
    served.send("served");
    served.halfClose();
    ASSERT_TRUE(eventually([&] { return control.answering == 1; }));
    const LoopbackClient first(server.port());
    const LoopbackClient second(server.port());
    ASSERT_TRUE(built(3));
    std::vector<std::unique_ptr<LoopbackClient>> more;
    {
        const std::lock_guard noneIsBuilt(control.mutex);
        for (int i = 0; i < 3; ++i) {  // one for the fourth place, two that wait
            more.push_back(std::make_unique<LoopbackClient>(server.port()));
        }
    }
    ASSERT_TRUE(eventually([&] { return control.answering == 3; }));
    allow(control.mayAnswer);
    ASSERT_TRUE(built(6));
    EXPECT_EQ(served.receiveAll(), "served");
    server.stop();
    ASSERT_GE(control.gaveWay.size(), 2u);
    EXPECT_EQ(control.gaveWay[0], 2u);
    EXPECT_EQ(control.gaveWay[1], 3u);
    EXPECT_EQ(control.goneBefore[1], 0);
    EXPECT_EQ(std::count(control.gaveWay.begin(), control.gaveWay.end(), 1u), 0);
}

TEST_F(ThreadServerTest, NobodyGivesWayWhereAPlaceIsAboutToBecomeFree) {
    const std::chrono::milliseconds none{0};
    control.mayQuit = false;
    EchoServer server(threads, 0, 2, 100, &control, &log, PATIENT, {none, none, none, none});
    server.start();
    EXPECT_EQ(LoopbackClient(server.port()).ask("ended"), "ended");
    ASSERT_TRUE(eventually([&] { return control.closed == 1; }));
    LoopbackClient silent(server.port());
    ASSERT_TRUE(built(2));
    LoopbackClient waiting(server.port());
    EXPECT_TRUE(eventually([&] { return control.looks >= 10; }));
    allow(control.mayQuit);
    EXPECT_EQ(waiting.ask("waiting"), "waiting");
    EXPECT_EQ(silent.ask("silent"), "silent");
    server.stop();
    EXPECT_TRUE(control.gaveWay.empty());
}

TEST_F(ThreadServerTest, ClientThatIsBeingAnsweredWhenTheServerStopsGetsItsAnswer) {
    control.mayAnswer = false;
    EchoServer server(threads, 0, 2, 100, &control, &log, PATIENT);
    server.start();
    LoopbackClient client(server.port());
    client.send("request");
    client.halfClose();
    ASSERT_TRUE(eventually([&] { return control.answering == 1; }));
    const std::future<void> stopping = std::async(std::launch::async, [&] { server.stop(); });
    EXPECT_TRUE(eventually([&] { return control.stops == 1; }));
    allow(control.mayAnswer);
    EXPECT_EQ(client.receiveAll(), "request");
}

TEST_F(ThreadServerTest, ClientThatCannotBeMadeCostsNeitherItsPlaceNorTheServer) {
    // Threads 1 and 2 are the server's own; 3 is that of the client that memory runs out for.
    const SparseThreadFactory sparse(4);
    control.buildsToFail = 1;
    EchoServer server(sparse, 0, 1, 100, &control, &log);
    server.start();
    EXPECT_EQ(LoopbackClient(server.port()).receiveAll(), "");
    EXPECT_EQ(LoopbackClient(server.port()).receiveAll(), "");
    EXPECT_EQ(LoopbackClient(server.port()).ask("x"), "x");
    server.stop();
    EXPECT_EQ(control.ids, (std::set<std::uint32_t>{2, 3}));
    const std::vector<std::string> texts = log.texts();
    ASSERT_GE(texts.size(), 2u);  // the end of accept follows, unless the stop finds that thread elsewhere
    EXPECT_EQ(texts[0], "bad alloc in ThreadServer::_create_clients");
    EXPECT_EQ(texts[1], "No more threads.");
}

TEST_F(ThreadServerTest, ClientWaitsWhileThereAreNoDescriptorsAndTheServerDoesNotSpin) {
    EchoServer server(threads, 0, 1, 100, &control, &log);
    LoopbackClient client(server.port());
    {
        const support::NoDescriptorsLeft limit;
        server.start();
        ASSERT_TRUE(eventually([&] { return log.texts().size() >= 2; }));
        EXPECT_LE(log.texts().size(), 20u);
        EXPECT_NE(log.texts()[0].find("Too many open files"), std::string::npos);
    }
    EXPECT_EQ(client.ask("x"), "x");
    server.stop();
}

TEST_F(ThreadServerTest, StopsWithoutHavingStartedAndWhenAPartOfItCannotStart) {
    EchoServer neverStarted(threads, 0, 2, 100, &control, nullptr);
    neverStarted.stop();
    neverStarted.join();
    for (const int unstartable : {1, 2}) {
        std::uint16_t port = 0;
        const SparseThreadFactory sparse(unstartable, [&] {
            // The half that runs serves a client, which nobody reaps, in the only place.
            if (unstartable == 2) {
                EXPECT_EQ(LoopbackClient(port).ask("early"), "early");
            }
        });
        EchoServer server(sparse, 0, 1, 100, &control, nullptr);
        port = server.port();
        EXPECT_THROW(server.start(), ThreadException);
        EXPECT_THROW(LoopbackClient{port}, std::system_error) << unstartable;
    }
}

}  // namespace
}  // namespace net::server
