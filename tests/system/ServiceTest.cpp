#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/NotifyReceiver.h"
#include "system/Program.h"
#include "system/Wire.h"

namespace systemtest {
namespace {

const std::string FAILED = "An exception occured when trying to startup the server. ";
const std::string READY = "READY=1\nSTATUS=Morvane Server is running.";

using testing::HasSubstr;

TEST(ServiceTest, ReportsReadyWhenItListensAndStoppingWhenItIsToldTo) {
    const Installation installation;
    support::NotifyReceiver manager;
    std::unique_ptr<Process> service;
    std::uint16_t port = 0;
    std::string report;
    for (int attempt = 0; attempt < 10 && report != READY; ++attempt) {
        // Somebody else may take the port between here and the service's own bind.
        port = BoundPort().port();
        support::writeFile(installation.file("config.xml"), configuration({.port = std::to_string(port)}));
        service = installation.run({"-scm", "-config", "config.xml"});
        EXPECT_EQ(manager.next(), "STATUS=Morvane Server is starting.");
        report = manager.next();
    }
    ASSERT_EQ(report, READY) << installation.log();
    EXPECT_TRUE(ask(port, creation("c")).isSuccess());

    service->signal(SIGTERM);
    EXPECT_EQ(manager.next(), "STOPPING=1\nSTATUS=Morvane Server is stopping.");
    EXPECT_EQ(manager.next(), "STATUS=Morvane Server has stopped with exit code 0.");
    EXPECT_EQ(service->wait(), 0);
    EXPECT_EQ(installation.output(), "");
    for (const std::string words :
         {"Running server as a service.", "Stopping the service from SCM.", "Closing server."}) {
        EXPECT_THAT(installation.log(), HasSubstr(words));
    }
}

TEST(ServiceTest, TellsTheManagerOfAStartThatFailed) {
    const Installation installation;
    BoundPort taken;
    taken.listen();
    const std::string port = std::to_string(taken.port());
    support::writeFile(installation.file("config.xml"), configuration({.port = port}));
    for (const std::string file : {"config.xml", "missing.xml"}) {
        support::NotifyReceiver manager;
        const auto service = installation.run({"-scm", "-config", file});
        EXPECT_EQ(manager.next(), "STATUS=Morvane Server is starting.");
        EXPECT_EQ(manager.next(), "STATUS=Morvane Server has stopped with exit code 1.");
        EXPECT_EQ(service->wait(), 1);
    }
    EXPECT_THAT(installation.log(), HasSubstr(FAILED + "The port, " + port + ", is already in use."));
    // Where no manager is, it can't run at all.
    EXPECT_EQ(installation.run({"-scm", "-config", "config.xml"})->wait(), 1);
    EXPECT_THAT(installation.log(), HasSubstr(FAILED + "Could not start service dispatcher using "
                                                       "'StartServiceCtrlDispatcher'. System error"));
}

TEST(ServiceTest, IsNotInstalledWhereNoManagerIs) {
    if (std::filesystem::exists("/run/systemd/system")) {
        GTEST_SKIP() << "Systemd runs this machine, and its services are none of a test's business.";
    }
    const Installation installation;
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"-install", "-config", "none.xml"},
          {"-uninstall"},
          {"-start"},
          {"-stop"}}) {
        std::filesystem::remove(installation.file("output.txt"));
        EXPECT_EQ(installation.run(command)->wait(), 1);
        EXPECT_THAT(installation.output(),
                    HasSubstr(FAILED + "Could not open Service Control Manager using 'OpenSCManager'. Host: "
                                       "(null). System error message: No such file or directory."));
    }
}

}  // namespace
}  // namespace systemtest
