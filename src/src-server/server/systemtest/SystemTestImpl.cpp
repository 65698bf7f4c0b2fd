#include "server/systemtest/SystemTestImpl.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "debug/Assertion.h"
#include "exceptions/Exception.h"
#include "platform/thread/ThreadFactoryImpl.h"
#include "server/StringClassifier.h"
#include "server/systemtest/TestClient.h"
#include "server/systemtest/Tester.h"
#include "util/StringHelper.h"

namespace halvern::morvane {

namespace {

constexpr char HOST[] = "localhost";
constexpr char SCHEMA_PATH[] = "./xml/schemas/server/";

// Runs the whole script on its thread, with a connection for each request.
class TestCaseClient final : public TestClient, public StringClassifier {
public:
    TestCaseClient(std::uint16_t port, const std::string& schemaPath)
        : TestClient(platform::thread::ThreadFactoryImpl(), HOST, port, ""), _schemaPath(schemaPath) {}

    void run() override { Tester(*this, _schemaPath).runAll(); }

    std::string& handle(std::string& out, const std::string& request) override {
        _request = request;
        TestClient::run();
        return out = _response;
    }

private:
    const std::string _schemaPath;
};

void runToItsEnd(TestClient& client) {
    client.start();
    client.join();
}

void send(std::uint16_t port, const std::string& request) {
    TestClient client(platform::thread::ThreadFactoryImpl(), HOST, port, request);
    runToItsEnd(client);
}

void runTestCases(std::uint16_t port) {
    TestCaseClient client(port, SCHEMA_PATH);
    runToItsEnd(client);
}

void runTestCasesAtOnce(std::uint16_t port) {
    std::vector<std::unique_ptr<TestCaseClient>> clients;
    for (std::uint32_t i = 0; i < SystemTest::CLIENTS_AT_ONCE; ++i) {
        clients.push_back(std::make_unique<TestCaseClient>(port, SCHEMA_PATH));
    }
    for (const auto& client : clients) {
        client->start();
    }
    for (const auto& client : clients) {
        client->join();
    }
}

}  // namespace

std::uint32_t SystemTestImpl::run(std::uint16_t port) {
    struct Step {
        const char* line;
        std::function<void()> work;
    };
    const Step steps[] = {
        {"Testing connecting a client and not sending any data...", [port] { send(port, ""); }},
        {"Testing connecting a client and sending some random data...",
         [port] { send(port, util::StringHelper::randomBytes(1000)); }},
        {"Testing connecting a client and running xml test cases...", [port] { runTestCases(port); }},
        {"Testing connecting multiple client and running xml testcases...",
         [port] { runTestCasesAtOnce(port); }},
    };
    std::uint32_t passed = 0;
    for (const Step& step : steps) {
        _log.test(step.line);
        try {
            step.work();
            ++passed;
        } catch (const exceptions::Exception& e) {
            CHECK(false, e.what());
        }
    }
    return passed;
}

}  // namespace halvern::morvane
