#include "windows/services/ServiceMain.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "support/NotifyReceiver.h"
#include "windows/services/ServiceDispatcher.h"

namespace {

using namespace windows::services;

class TestService final : public ServiceMain {
public:
    std::string getServiceName() const override { return "Some Server"; }
    void serviceMain() override { body(*this); }
    std::uint32_t handler(std::uint32_t) override { return serviceControl::NOT_IMPLEMENTED; }

    std::function<void(TestService&)> body = [](TestService&) {};
};

TEST(ServiceMainTest, ReportsEachStateInTheManagersWords) {
    for (const bool abstractName : {false, true}) {
        support::NotifyReceiver manager(abstractName);
        TestService service;
        service.body = [](TestService& self) {
            self.registerHandler();
            self.setStatus(ServiceState::START_PENDING);
            self.setStatus(ServiceState::RUNNING);
            self.setStatus(ServiceState::STOP_PENDING);
            self.setStatus(ServiceState::STOPPED, 3);
        };
        ServiceDispatcherImpl().dispatch(service);
        EXPECT_EQ(manager.next(), "STATUS=Some Server is starting.");
        EXPECT_EQ(manager.next(), "READY=1\nSTATUS=Some Server is running.");
        EXPECT_EQ(manager.next(), "STOPPING=1\nSTATUS=Some Server is stopping.");
        EXPECT_EQ(manager.next(), "STATUS=Some Server has stopped with exit code 3.");
        EXPECT_EQ(service.exitCode(), 3u);
    }
}

TEST(ServiceMainTest, FailsInAProcessThatTheManagerDidNotStart) {
    const auto complaint = [](const auto& action) {
        try {
            action();
        } catch (const exceptions::Exception& e) {
            return std::string(e.what());
        }
        return std::string("No exception");
    };
    TestService service;
    bool ran = false;
    service.body = [&](TestService&) { ran = true; };
    const std::string frame =
        "Could not start service dispatcher using 'StartServiceCtrlDispatcher'. System error";
    for (const std::string address : {"", "relative", "/no/such/socket", "@nobody-listens-here"}) {
        ::setenv("NOTIFY_SOCKET", address.c_str(), 1);
        EXPECT_EQ(complaint([&] { ServiceDispatcherImpl().dispatch(service); }).substr(0, frame.size()),
                  frame)
            << address;
    }
    ::setenv("NOTIFY_SOCKET", ("/" + std::string(200, 'x')).c_str(), 1);
    EXPECT_NE(complaint([&] { ServiceDispatcherImpl().dispatch(service); }).find("File name too long"),
              std::string::npos);
    ::unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(complaint([&] { ServiceDispatcherImpl().dispatch(service); }).substr(0, frame.size()), frame);
    EXPECT_FALSE(ran);

    EXPECT_EQ(
        complaint([&] { service.registerHandler(); }),
        "Failed registering a service control handler using 'RegisterServiceCtrlHandlerEx'. System error "
        "message: Transport endpoint is not connected. Error code: 107.");
}

TEST(ServiceMainTest, FailsToReportToAManagerThatHasGone) {
    auto manager = std::make_unique<support::NotifyReceiver>();
    TestService service;
    service.body = [&](TestService& self) {
        manager.reset();
        self.setStatus(ServiceState::STOPPED, 7);
    };
    EXPECT_THROW(ServiceDispatcherImpl().dispatch(service), ServiceMainException);
    EXPECT_EQ(service.exitCode(), 7u);
}

}  // namespace
