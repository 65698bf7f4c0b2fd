#include "server/Settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "support/ClientRun.h"
#include "support/TempDir.h"

namespace halvern::morvane::client {
namespace {

using support::clientFailureOf;
using testing::HasSubstr;

TEST(SettingsTest, AddressesComeInAllUsualForms) {
    const std::pair<const char*, const char*> sound[] = {
        {"example.org", "example.org:9400"},
        {"10.0.0.7:80", "10.0.0.7:80"},
        {"::1", "[::1]:9400"},
        {"[::1]:65535", "[::1]:65535"},
    };
    for (const auto& [text, address] : sound) {
        EXPECT_EQ(parseAddress(text, "--server").text(), address);
    }
    for (const char* text :
         {"", ":9400", "h:", "h:0", "h:65536", "h:9400x", "h:-1", "[::1", "[::1]9400", "[]:1"}) {
        const Failure failure = clientFailureOf([&] { parseAddress(text, "--server"); });
        EXPECT_EQ(failure.code, ExitCode::USAGE) << text;
        EXPECT_THAT(failure.message, HasSubstr("--server"));
    }
}

TEST(SettingsTest, TheCommandLineGoesFirstThenTheEnvironmentThenTheFile) {
    const support::TempDir folder;
    std::map<std::string, std::string> variables{{"HOME", folder.path()}};
    const Environment environment = [&](const std::string& name) {
        const auto found = variables.find(name);
        return found == variables.end() ? std::nullopt : std::optional<std::string>(found->second);
    };
    const auto read = [&](const GlobalOptions& options) {
        const Settings settings = readSettings(options, environment);
        return settings.address.text() + " " + std::to_string(settings.timeout.count());
    };
    EXPECT_EQ(read({}), "127.0.0.1:9400 300000");

    std::filesystem::create_directories(folder.file(".config/morvane"));
    support::writeFile(folder.file(".config/morvane/config"),
                       "\xef\xbb\xbf# mine\n\n  server =  file:1  # the old one\r\ntimeout=0.0001\n");
    EXPECT_EQ(read({}), "file:1 1") << "A tiny time must not become none, which means for ever";
    variables["XDG_CONFIG_HOME"] = "relative/path";
    EXPECT_EQ(read({}), "file:1 1");
    std::filesystem::rename(folder.file(".config/morvane"), folder.file("morvane"));
    variables["XDG_CONFIG_HOME"] = folder.path();
    EXPECT_EQ(read({}), "file:1 1");
    variables["MORVANE_SERVER"] = "environment:2";
    EXPECT_EQ(read({}), "environment:2 1");
    EXPECT_EQ(read({.server = "line:3", .timeoutSeconds = 0}), "line:3 0");
    variables["MORVANE_SERVER"] = "";
    EXPECT_EQ(read({}), "file:1 1");

    for (const char* line : {"serve = a", "server =", "timeout = 1s"}) {
        support::writeFile(folder.file("morvane/config"), std::string("timeout = 5\n") + line + "\n");
        const Failure failure = clientFailureOf([&] { read({}); });
        EXPECT_EQ(failure.code, ExitCode::USAGE) << line;
        EXPECT_THAT(failure.message, HasSubstr("morvane/config:2"));
    }
    support::writeFile(folder.file("morvane/config"), "");
    for (const double seconds : {-1.0, 1e7, std::nan("")}) {
        EXPECT_EQ(clientFailureOf([&] { read({.timeoutSeconds = seconds}); }).code, ExitCode::USAGE);
    }
}

}  // namespace
}  // namespace halvern::morvane::client
