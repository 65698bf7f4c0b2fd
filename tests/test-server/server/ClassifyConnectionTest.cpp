#include "server/ClassifyConnection.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <new>
#include <thread>

#include "exceptions/IllegalArgumentException.h"
#include "net/server/ThreadServer.h"
#include "net/socket/SocketException.h"
#include "platform/thread/ThreadFactoryImpl.h"
#include "server/LogLevel.h"
#include "support/ClassifierTable.h"
#include "support/Eventually.h"
#include "support/LoopbackClient.h"
#include "support/StoredClassifier.h"

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

using exceptions::IllegalArgumentException;
using std::chrono::milliseconds;
using std::chrono::seconds;
using support::eventually;
using support::LoopbackClient;
using Handler = std::function<std::string(const std::string&)>;
using Texts = std::vector<std::string>;

struct FakeClassifierFactory final : StringClassifierFactory {
    struct Fake final : StringClassifier {
        explicit Fake(const Handler& handler) : handler(handler) {}
        std::string& handle(std::string& out, const std::string& request) override {
            return out = handler(request);
        }
        const Handler& handler;
    };
    std::unique_ptr<StringClassifier> create() const override {
        onCreate();
        return std::make_unique<Fake>(handler);
    }
    std::function<void()> onCreate = [] {};
    Handler handler = [](const std::string& request) {
        return "answer to " + std::to_string(request.size());
    };
};

struct FakeErrorResponseFactory final : ErrorResponseFactory {
    struct Fake final : ErrorResponse {
        std::string& render(std::string& out, std::int32_t statusCode, const std::string& message) override {
            return out = std::to_string(statusCode) + ":" + message;
        }
    };
    std::unique_ptr<ErrorResponse> create() const override { return std::make_unique<Fake>(); }
};

struct FakeTerminateHandler final : exceptions::TerminateHandler {
    void onTerminate() noexcept override { std::abort(); }
    void install() override { ++installed; }
    std::atomic<int> installed = 0;
};

class ClassifyConnectionTest : public testing::Test {
protected:
    static constexpr std::uint64_t INPUT_LIMIT = 40000;
    using Server = net::server::ThreadServer<ClassifyConnection, const ConnectionParams*>;

    // One place, so that a client that is served shows the one before to be gone.
    void serve(const net::socket::IdleBounds& bounds = {}) {
        server = std::make_unique<Server>(threads, 0, 1, 100, &params, nullptr, bounds);
        server->start();
    }
    ~ClassifyConnectionTest() override {
        if (server) {  // a test that is skipped has none
            server->stop();
        }
        EXPECT_EQ(count("Creating connection"), count("Finished connection"));
    }

    std::string ask(std::string_view request) { return LoopbackClient(server->port()).ask(request); }

    std::size_t count(const std::string& part) const {
        const auto entries = log.entries();
        return std::count_if(entries.begin(), entries.end(),
                             [&](const auto& entry) { return entry.text.find(part) != std::string::npos; });
    }
    Texts errors() const {
        Texts texts;
        for (const auto& entry : log.entries()) {
            if (entry.level != logLevel::log) {
                texts.push_back(entry.text);
            }
        }
        return texts;
    }

    support::RecordingLog log;
    FakeClassifierFactory classifiers;
    FakeErrorResponseFactory errorResponses;
    FakeTerminateHandler terminateHandler;
    ConnectionParams params{INPUT_LIMIT, log, classifiers, errorResponses, terminateHandler};
    platform::thread::ThreadFactoryImpl threads;
    std::unique_ptr<Server> server;
};

TEST_F(ClassifyConnectionTest, TakesRequestsUpToTheLimitAndRefusesOneByteMore) {
    serve();
    const std::pair<std::size_t, std::string> cases[] = {
        {0, "answer to 0"},
        {INPUT_LIMIT, "answer to 40000"},
        {INPUT_LIMIT + 1, "4013:Client with id 3 exceeded maximum input size 40000."},
        {100 * INPUT_LIMIT, "4013:Client with id 4 exceeded maximum input size 40000."},
    };
    for (const auto& [size, answer] : cases) {
        EXPECT_EQ(ask(std::string(size, 'x')), answer) << size;
    }
    EXPECT_EQ(terminateHandler.installed, 4);
    EXPECT_EQ(errors(), Texts());
}

TEST_F(ClassifyConnectionTest, FailuresAreAnsweredWhereThereIsSomebodyToAnswer) {
    const std::string exception = "An Exception when running a connection with id ";
    const std::string cut = exception + "4." + std::string(128 - 49, 'w');
    const struct {
        std::function<void()> fail;
        std::string answer;
        std::string line;
    } cases[] = {
        {[] { throw IllegalArgumentException("Why."); }, "5000:" + exception + "1.Why.",
         exception + "1.Why."},
        {[] { throw std::bad_alloc(); }, "5030:", "Out of memory."},
        {[] { throw net::socket::WriteException("Why."); }, "",
         "An SocketException when running a connection with id 3. Why."},
        {[] { throw IllegalArgumentException(std::string(500, 'w')); }, "5000:" + cut, cut},
    };
    std::function<void()> fail;
    classifiers.handler = [&](const std::string&) {
        fail();
        return "";
    };
    serve();
    Texts lines;
    for (const auto& each : cases) {
        fail = each.fail;
        EXPECT_EQ(ask("request"), each.answer);
        lines.push_back(each.line);
        EXPECT_EQ(errors(), lines);
    }
    // This one is not there any more when the answer comes.
    LoopbackClient client(server->port());
    fail = [&] {
        client.reset();
        throw IllegalArgumentException("Why.");
    };
    client.halfClose();
    EXPECT_TRUE(eventually([&] {
        return log.has(logLevel::log, "Failed to send status code to client. Could not write data");
    }));
}

TEST_F(ClassifyConnectionTest, ClientThatIsStillSendingCanReadItsAnswerToTheEnd) {
    classifiers.onCreate = [] { throw std::bad_alloc(); };
    serve();
    const std::string request(500000, 'x');
    for (int round = 0; round < 40; ++round) {
        LoopbackClient client(server->port());
        EXPECT_TRUE(client.send(request));
        EXPECT_EQ(client.ask(request), "5030:");
    }
}

TEST_F(ClassifyConnectionTest, ClientThatNeverEndsItsSendingIsAnsweredAndLetGo) {
    const std::string request(INPUT_LIMIT + 1, 'x');
    const std::string answer = "4013:Client with id 1 exceeded maximum input size 40000.";
    const DrainBounds off = {seconds(3600), seconds(3600), UINT64_MAX};
    const DrainBounds cases[] = {{milliseconds(50), off.time, off.bytes},
                                 {off.silence, milliseconds(200), off.bytes},
                                 {off.silence, off.time, 1 << 20}};
    for (const DrainBounds& bounds : cases) {
        params.discardBounds = bounds;
        params.lingerBounds = bounds;
        serve();
        LoopbackClient client(server->port());
        client.send(request);
        std::jthread sender([&] {
            while (bounds.silence == off.silence && client.send(request)) {
            }
        });
        EXPECT_EQ(client.receiveExactly(answer.size()), answer);
        sender.join();  // the server has closed at last
        server->stop();
    }
}

TEST_F(ClassifyConnectionTest, ClientsThatGoAwayOrDoNothingLoseTheirPlace) {
    classifiers.handler = [](const std::string& request) {
        return request == "much" ? std::string(32 << 20, 'a') : "answer";
    };
    serve();
    LoopbackClient lost(server->port());
    lost.send("half a requ");
    ASSERT_TRUE(eventually([&] { return count("Running connection 1.") == 1; }));
    lost.reset();
    EXPECT_EQ(ask("x"), "answer");
    server->stop();

    serve({milliseconds(300), milliseconds(300)});
    LoopbackClient silent(server->port());
    silent.send("half a requ");
    EXPECT_EQ(silent.receiveAll(), "");
    LoopbackClient notReading(server->port(), 4096);
    notReading.send("much");
    notReading.halfClose();
    EXPECT_EQ(ask("x"), "answer");
    const Texts texts = errors();
    ASSERT_EQ(texts.size(), 3u);
    EXPECT_NE(texts[0].find("with id 1. Error reading data"), std::string::npos);
    EXPECT_NE(texts[1].find("with id 1. Error reading data"), std::string::npos);
    EXPECT_NE(texts[2].find("with id 2. Could not write data"), std::string::npos);
}

TEST_F(ClassifyConnectionTest, JumpsOfTheClockLoseNoClientAndNoClassifier) {
#ifdef MORVANE_SANITIZED
    GTEST_SKIP() << "The sanitizers have the clock in their own hands.";
#endif
    constexpr std::int64_t TEN_YEARS = 10LL * 365 * 24 * 3600;
    support::ClassifierTable all;
    all.files.save("root/a.dat", support::StoredClassifier().bytes());
    for (const std::int64_t to : {TEN_YEARS, -TEN_YEARS}) {
        jump = 0;
        // The bounds are those of the program, so a client that loses or gains ten years would show.
        serve();
        LoopbackClient client(server->port());
        client.send("a");
        ASSERT_TRUE(eventually([&] { return count("Running connection 1.") == (to > 0 ? 1 : 2); }));
        const auto held = all.table.get("root/a.dat");
        jump = to;
        EXPECT_EQ(client.ask("b"), "answer to 2");
        // Who was used last may be mistaken, but only for what nobody holds, and that is loaded again.
        all.memory.script = [] { return 0; };
        EXPECT_EQ(all.table.get("root/a.dat"), held);
        server->stop();
    }
    jump = 0;
}

TEST_F(ClassifyConnectionTest, RequestThatIsCutByStoppingIsNeverHandled) {
    const std::string tooMuch(INPUT_LIMIT + 1, 'x');
    std::size_t rounds = 0;
    for (const std::string& begin : {std::string("half a requ"), tooMuch}) {
        serve();
        ++rounds;
        LoopbackClient client(server->port());
        client.send(begin);
        ASSERT_TRUE(eventually([&] { return count("Running connection 1.") == rounds; }));
        if (begin == tooMuch) {
            ASSERT_TRUE(eventually([&] { return count("exceeded maximum") == 1; }));
        }
        server->stop();
        EXPECT_EQ(client.receiveAll(), "");
        EXPECT_EQ(count("Received a request"), 0u);
        EXPECT_EQ(errors(), Texts());
    }
}

}  // namespace
}  // namespace halvern::morvane
