#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "net/server/ThreadServer.h"
#include "net/socket/SocketException.h"
#include "platform/thread/ThreadFactoryImpl.h"
#include "support/ClassifierTable.h"
#include "support/LoopbackClient.h"
#include "util/DateAndTime.h"
#include "util/MethodCaller.h"

namespace {

std::atomic<std::int64_t> jump = 0;  // seconds

}  // namespace

#ifndef MORVANE_SANITIZED
// They stand before the C library's: a clock on the wall that somebody moves, while the steady one goes on.
extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    now->tv_sec += clock == CLOCK_REALTIME ? jump.load() : 0;
    return result;
}

extern "C" time_t time(time_t* now) noexcept {
    timespec precise{};
    clock_gettime(CLOCK_REALTIME, &precise);
    return now == nullptr ? precise.tv_sec : (*now = precise.tv_sec);
}
#endif

namespace halvern::morvane {
namespace {

// Answers each request with itself.
class Echo final : public net::server::Connection {
public:
    Echo(const platform::thread::ThreadFactory& factory, std::uint32_t id, int) : Connection(factory, id) {}
    void run() override {
        const util::MethodCaller0<Connection, void (Connection::*)()> quitter(*this, &Connection::quit);
        try {
            char byte = 0;
            while (_socketStream->read(&byte, 1) == 1) {
                _socketStream->write(&byte, 1);
            }
        } catch (const net::socket::SocketException&) {
        }
        _socketStream->close();
    }
    void stop() override {}
};

TEST(ClockTest, JumpsLoseNoClientAndNoClassifier) {
#ifdef MORVANE_SANITIZED
    GTEST_SKIP() << "The sanitizers have the clock in their own hands.";
#endif
    constexpr std::int64_t TEN_YEARS = 10LL * 365 * 24 * 3600;
    const std::string before = util::DateAndTime::now().str();
    const platform::thread::ThreadFactoryImpl threads;
    support::ClassifierTable all;
    util::Bytes data;
    all.factory.create(all.callbackFactory)->getTrainingData(data);
    for (const char* name : {"root/a.dat", "root/b.dat", "root/c.dat"}) {
        all.files.save(name, data);
    }
    for (const std::int64_t to : {TEN_YEARS, -TEN_YEARS}) {
        jump = 0;
        // The bounds are those of the program, so a client that loses or gains ten years would show.
        net::server::ThreadServer<Echo, int> server(threads, 0, 2, 5, 0, nullptr);
        server.start();
        support::LoopbackClient client(server.port());
        client.send("a");
        EXPECT_EQ(client.receiveExactly(1), "a");
        const auto held = all.table.get("root/a.dat");
        all.table.get("root/b.dat");
        jump = to;
        EXPECT_NE(std::string(util::DateAndTime::now().str()).substr(20), before.substr(20));
        client.send("b");
        EXPECT_EQ(client.receiveExactly(1), "b");
        EXPECT_EQ(support::LoopbackClient(server.port()).ask("c"), "c");
        // Who was used last may be mistaken, but only for what nobody holds, and that is loaded again.
        all.table.get("root/c.dat");
        all.memory.script = [] { return 0; };
        for (const char* name : {"root/b.dat", "root/c.dat", "root/a.dat"}) {
            EXPECT_NE(all.table.get(name), nullptr);
        }
        EXPECT_EQ(all.table.get("root/a.dat"), held);
        server.stop();
        EXPECT_EQ(client.receiveAll(), "");
        all.memory.script = support::ScriptedMemory::plenty;
    }
    jump = 0;
}

}  // namespace
}  // namespace halvern::morvane
