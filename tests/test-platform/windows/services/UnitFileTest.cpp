#include "windows/services/UnitFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "exceptions/IllegalArgumentException.h"
#include "support/TempDir.h"
#include "windows/services/Systemctl.h"

namespace {

using testing::HasSubstr;
using windows::services::ServiceDefinition;
using windows::services::Systemctl;
using windows::services::SystemctlImpl;
using windows::services::UnitFile;

constexpr const char* ANALYZE = "/usr/bin/systemd-analyze";

ServiceDefinition definition(const std::string& program) {
    return {.name = "Some Server",
            .displayName = "Some Server",
            .command = {program, "-scm", "-config", "config.xml"},
            .account = "",
            .writableFolders = {"/var"},
            .bindsPrivilegedPort = false};
}

TEST(UnitFileTest, TheManagerTakesAnyPathAndFindsLittleExposure) {
    if (!std::filesystem::exists(ANALYZE)) {
        GTEST_SKIP() << "This machine has no systemd-analyze.";
    }
    const support::TempDir folder;
    const std::string unit = folder.file("some-server.service");
    for (const std::string name :
         {"two words 100%h $HOME", "it's", "back\\slash", "a\"b", ";x", "\xc3\xa5", "end\\"}) {
        const std::string program = folder.file(name);
        std::filesystem::copy_file("/bin/true", program);
        ServiceDefinition service = definition(program);
        service.command.push_back(name);
        service.writableFolders = {program};
        support::writeFile(unit, UnitFile::textOf(service));
        const SystemctlImpl analyze(ANALYZE);
        const Systemctl::Result result = analyze.run({"verify", "--man=no", "--recursive-errors=yes", unit});
        EXPECT_TRUE(result.exitCode == 0 && result.message.empty()) << result.message;
    }
    // The limit is in tenths, so this is below 2.0.
    ServiceDefinition service = definition("/bin/true");
    for (const std::string account : {"", "daemon"}) {
        service.account = account;
        service.bindsPrivilegedPort = !account.empty();
        support::writeFile(unit, UnitFile::textOf(service));
        const Systemctl::Result result =
            SystemctlImpl(ANALYZE).run({"security", "--offline=yes", "--no-pager", "--threshold=19", unit});
        EXPECT_EQ(result.exitCode, 0) << result.message << "\n" << UnitFile::textOf(service);
    }
}

TEST(UnitFileTest, HidesNoFolderThatTheServiceLivesIn) {
    // Program, argument, folder; then what hides homes and temporary files.
    const char* const rows[][5] = {
        {"/opt/x", "config.xml", "/srv", "yes", "yes"},
        {"/home/a/x", "config.xml", "/srv", "read-only", "yes"},
        {"/opt/x", "c", "/run/user/5", "read-only", "yes"},
        {"/homely/x", "/tmpfiles", "/var/tmp/d", "yes", "no"},
    };
    for (const auto& [program, argument, folder, home, temporary] : rows) {
        ServiceDefinition service = definition(program);
        service.command.push_back(argument);
        service.writableFolders = {folder};
        const std::string text = UnitFile::textOf(service);
        EXPECT_THAT(text, HasSubstr(std::string("\nProtectHome=") + home + "\n")) << program;
        EXPECT_THAT(text, HasSubstr(std::string("\nPrivateTmp=") + temporary + "\n")) << program;
    }
}

TEST(UnitFileTest, RefusesWhatNoQuotingCanHold) {
    for (const std::string word : {"/opt/a\nUser=root", "/opt/\t", "/opt/\x7f", "/opt/\xe5"}) {
        ServiceDefinition service = definition("/opt/x");
        service.writableFolders = {word};
        for (const ServiceDefinition& impossible : {service, definition(word)}) {
            EXPECT_THROW(UnitFile::textOf(impossible), exceptions::IllegalArgumentException) << word;
        }
        EXPECT_THROW(UnitFile::withDescription("[Unit]\nDescription=x\n", word),
                     exceptions::IllegalArgumentException);
    }
}

}  // namespace
