#include "server/ClassifyConnection.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <thread>

#include "exceptions/IllegalArgumentException.h"
#include "net/server/ThreadServer.h"
#include "net/socket/SocketException.h"
#include "platform/thread/ThreadFactoryImpl.h"
#include "server/LogLevel.h"
#include "support/Descriptors.h"
#include "support/LoopbackClient.h"
#include "support/RecordingLog.h"
#include "support/WaitUntil.h"

namespace halvern::morvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using support::LoopbackClient;
using Handler = std::function<std::string(const std::string&)>;

class FakeClassifier final : public StringClassifier {
public:
    explicit FakeClassifier(const Handler& handler) : _handler(handler) {}
    std::string& handle(std::string& out, const std::string& request) override {
        return out = _handler(request);
    }

private:
    const Handler& _handler;
};

class FakeClassifierFactory final : public StringClassifierFactory {
public:
    std::unique_ptr<StringClassifier> create() const override {
        onCreate();
        return std::make_unique<FakeClassifier>(handler);
    }
    std::function<void()> onCreate = [] {};
    Handler handler = [](const std::string& request) {
        return "answer to " + std::to_string(request.size());
    };
};

class FakeErrorResponse final : public ErrorResponse {
public:
    explicit FakeErrorResponse(std::size_t padding) : _padding(padding) {}
    std::string& render(std::string& out, std::int32_t statusCode, const std::string& message) override {
        return out = std::to_string(statusCode) + ":" + message + std::string(_padding, '.');
    }

private:
    const std::size_t _padding;
};

class FakeErrorResponseFactory final : public ErrorResponseFactory {
public:
    std::unique_ptr<ErrorResponse> create() const override {
        return std::make_unique<FakeErrorResponse>(padding);
    }
    std::size_t padding = 0;
};

class FakeTerminateHandler final : public exceptions::TerminateHandler {
public:
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
        server->stop();
        EXPECT_EQ(count("Creating connection"), count("Finished connection"));
    }

    std::string ask(std::string_view request) { return LoopbackClient(server->port()).ask(request); }

    std::size_t count(const std::string& part) const {
        std::size_t found = 0;
        for (const auto& entry : log.entries()) {
            found += entry.text.find(part) != std::string::npos ? 1 : 0;
        }
        return found;
    }
    std::vector<std::string> errors() const {
        std::vector<std::string> texts;
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
    const struct {
        std::size_t size;
        std::string answer;
    } rows[] = {
        {0, "answer to 0"},
        {1, "answer to 1"},
        {16384, "answer to 16384"},
        {INPUT_LIMIT, "answer to 40000"},
        {INPUT_LIMIT + 1, "4013:Client with id 5 exceeded maximum input size 40000."},
        {100 * INPUT_LIMIT, "4013:Client with id 6 exceeded maximum input size 40000."},
        {2, "answer to 2"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ask(std::string(row.size, 'x')), row.answer) << row.size;
    }
    EXPECT_EQ(terminateHandler.installed, 7);
    EXPECT_EQ(errors(), std::vector<std::string>());
    server->stop();
    std::vector<std::string> first;
    for (const auto& entry : log.entries()) {
        if (entry.text.find("id 1") != std::string::npos ||
            entry.text.find("connection 1.") != std::string::npos) {
            first.push_back(entry.text);
        }
    }
    EXPECT_EQ(first, (std::vector<std::string>{"Creating connection with id 1", "Running connection 1.",
                                               "Received a request from client with id 1 with the size of 0.",
                                               "Finished connection with id 1"}));
    EXPECT_EQ(count("Client with id 5 exceeded maximum input size 40000."), 1u);
    EXPECT_EQ(count("Received a request"), 5u);
}

TEST_F(ClassifyConnectionTest, BytesComeThroughWholeWhateverThePiecesAre) {
    std::string seen;
    const std::string answer(20 << 20, 'a');
    classifiers.handler = [&](const std::string& request) {
        seen = request;
        return std::string(answer);
    };
    serve();
    LoopbackClient client(server->port());
    const std::string request("<a>\0\xff\r\n</a>", 11);
    for (const char byte : request) {
        client.send(std::string_view(&byte, 1));
        std::this_thread::yield();
    }
    client.halfClose();
    EXPECT_TRUE(client.receiveAll() == answer);
    EXPECT_EQ(seen, request);
}

TEST_F(ClassifyConnectionTest, FailuresAreAnsweredWhereThereIsSomebodyToAnswer) {
    const struct {
        std::function<void()> fail;
        std::string answer;
        std::string line;
    } rows[] = {
        {[] { throw exceptions::IllegalArgumentException("What failed."); },
         "5000:An Exception when running a connection with id 1.What failed.",
         "An Exception when running a connection with id 1.What failed."},
        {[] { throw std::bad_alloc(); }, "5030:", "Out of memory."},
        {[] { throw net::socket::WriteException("What failed."); }, "",
         "An SocketException when running a connection with id 3. What failed."},
        {[] { throw exceptions::IllegalArgumentException(std::string(500, 'w')); },
         "5000:An Exception when running a connection with id 4." + std::string(128 - 49, 'w'),
         "An Exception when running a connection with id 4." + std::string(128 - 49, 'w')},
    };
    std::function<void()> fail;
    classifiers.handler = [&](const std::string&) {
        fail();
        return "";
    };
    serve();
    std::vector<std::string> lines;
    for (const auto& row : rows) {
        fail = row.fail;
        EXPECT_EQ(ask("request"), row.answer);
        lines.push_back(row.line);
        EXPECT_EQ(errors(), lines);
    }
    // This one is not there any more when the answer comes.
    LoopbackClient client(server->port());
    fail = [&] {
        client.reset();
        throw exceptions::IllegalArgumentException("What failed.");
    };
    client.halfClose();
    EXPECT_TRUE(support::waitUntil([&] {
        return log.has(logLevel::log, "Failed to send status code to client. Could not write data");
    }));
}

TEST_F(ClassifyConnectionTest, ClientThatIsStillSendingCanReadItsAnswerToTheEnd) {
    errorResponses.padding = 2 << 20;
    classifiers.onCreate = [] { throw std::bad_alloc(); };
    serve();
    const std::string request(500000, 'x');
    for (int round = 0; round < 5; ++round) {
        LoopbackClient client(server->port());
        EXPECT_TRUE(client.send(request));
        EXPECT_EQ(client.ask(request), "5030:" + std::string(errorResponses.padding, '.'));
    }
}

TEST_F(ClassifyConnectionTest, ClientThatNeverEndsItsSendingIsAnsweredAndLetGo) {
    const std::string request(INPUT_LIMIT + 1, 'x');
    const std::string answer = "4013:Client with id 1 exceeded maximum input size 40000.";
    const DrainBounds off = {seconds(3600), seconds(3600), UINT64_MAX};
    const struct {
        const char* what;
        DrainBounds bounds;
        bool keepsSending;
    } rows[] = {
        {"silence", {milliseconds(50), off.time, off.bytes}, false},
        {"time", {off.silence, milliseconds(200), off.bytes}, true},
        {"bytes", {off.silence, off.time, 1 << 20}, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        params.discardBounds = row.bounds;
        params.lingerBounds = row.bounds;
        serve();
        LoopbackClient client(server->port());
        client.send(request);
        std::jthread sender([&] {
            while (row.keepsSending && client.send(request)) {
            }
        });
        EXPECT_EQ(client.receiveExactly(answer.size()), answer);
        sender.join();  // the server has closed at last
        server->stop();
    }
}

TEST_F(ClassifyConnectionTest, ClientsThatGoAwayDisturbNobody) {
    serve();
    // One that is gone before it is answered is no failure.
    for (int round = 0; round < 20; ++round) {
        LoopbackClient(server->port()).close();
    }
    EXPECT_EQ(ask("x"), "answer to 1");
    EXPECT_EQ(errors(), std::vector<std::string>());
    EXPECT_EQ(count("with the size of 0."), 20u);
    {
        LoopbackClient client(server->port());
        client.send("half a requ");
        ASSERT_TRUE(support::waitUntil([&] { return count("Running connection 22.") == 1; }));
        client.reset();
    }
    EXPECT_EQ(ask("x"), "answer to 1");
    ASSERT_EQ(errors().size(), 1u);
    EXPECT_EQ(errors()[0].find("An SocketException when running a connection with id 22. Error reading data"),
              0u);
}

TEST_F(ClassifyConnectionTest, ClientsThatDoNothingLoseTheirPlace) {
    classifiers.handler = [](const std::string& request) {
        return request == "much" ? std::string(32 << 20, 'a') : "answer";
    };
    serve({milliseconds(300), milliseconds(300)});
    LoopbackClient silent(server->port());
    silent.send("half a requ");
    EXPECT_EQ(silent.receiveAll(), "");
    LoopbackClient notReading(server->port(), 4096);
    notReading.send("much");
    notReading.halfClose();
    EXPECT_EQ(ask("x"), "answer");
    ASSERT_EQ(errors().size(), 2u);
    EXPECT_EQ(errors()[0].find("An SocketException when running a connection with id 1. Error reading data"),
              0u);
    EXPECT_EQ(
        errors()[1].find("An SocketException when running a connection with id 2. Could not write data"), 0u);
}

TEST_F(ClassifyConnectionTest, RequestThatIsCutByStoppingIsNeverHandled) {
    const std::string tooMuch(INPUT_LIMIT + 1, 'x');
    std::size_t rounds = 0;
    for (const std::string& begin : {std::string("half a requ"), tooMuch}) {
        serve();
        ++rounds;
        LoopbackClient client(server->port());
        client.send(begin);
        ASSERT_TRUE(support::waitUntil([&] { return count("Running connection 1.") == rounds; }));
        if (begin == tooMuch) {
            ASSERT_TRUE(support::waitUntil([&] { return count("exceeded maximum") == 1; }));
        }
        server->stop();
        EXPECT_EQ(client.receiveAll(), "");
        EXPECT_EQ(count("Received a request"), 0u);
        EXPECT_EQ(errors(), std::vector<std::string>());
    }
}

}  // namespace
}  // namespace halvern::morvane
