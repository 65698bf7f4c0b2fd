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

TEST(ServiceMainTest, FailsInAProcessThatTheManagerDidNotStartOrThatHasLostIt) {
    TestService service;
    service.body = [](TestService&) { ADD_FAILURE(); };
    for (const std::string& address : {std::string(), std::string("relative"),
                                       std::string("@nobody-listens-here"), std::string(200, '/')}) {
        ::setenv("NOTIFY_SOCKET", address.c_str(), 1);
        EXPECT_THROW(ServiceDispatcherImpl().dispatch(service), ServiceDispatcherException) << address;
    }

    auto manager = std::make_unique<support::NotifyReceiver>(true);  // an abstract address
    service.body = [&](TestService& self) {
        self.setStatus(ServiceState::RUNNING);
        EXPECT_EQ(manager->next(), "READY=1\nSTATUS=Some Server is running.");
        manager.reset();
        self.setStatus(ServiceState::STOPPED, 7);
    };
    EXPECT_THROW(ServiceDispatcherImpl().dispatch(service), ServiceMainException);
    EXPECT_EQ(service.exitCode(), 7u);
}

}  // namespace
