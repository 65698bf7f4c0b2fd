#include "windows/services/SCManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "support/Failure.h"
#include "support/TempDir.h"

namespace {

using namespace windows::services;
using support::failureOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

// Notes what it is asked, and refuses one kind of command.
class RecordingSystemctl final : public Systemctl {
public:
    Result run(const std::vector<std::string>& arguments) const override {
        std::string line;
        for (const std::string& argument : arguments) {
            line += (line.empty() ? "" : " ") + argument;
        }
        lines.push_back(line);
        const bool refused = std::count(arguments.begin(), arguments.end(), refuse) != 0;
        return refused ? Result{4, "Access denied"} : Result{0, ""};
    }

    mutable std::vector<std::string> lines;
    std::string refuse;
};

class SCManagerTest : public testing::Test {
protected:
    const support::TempDir _folder;
    const std::string _unit = _folder.file("some-server.service");
    const ManagerFolders _folders{.running = _folder.path(), .units = _folder.path()};
    RecordingSystemctl _systemctl;
    const io::filesystem::LoadFileImpl _loadFile;
    const io::filesystem::SaveFileImpl _saveFile;
    const io::filesystem::RemoveFileImpl _removeFile;
    const ServiceTools _tools{_systemctl, _loadFile, _saveFile, _removeFile};
    const ServiceDefinition _definition{.name = "Some Server",
                                        .displayName = "Some Server",
                                        .command = {"/opt/x"},
                                        .account = "",
                                        .writableFolders = {}};
};

TEST_F(SCManagerTest, LeadsAServiceThroughItsLife) {
    const SCManagerImpl manager(_folders, _tools);
    const std::unique_ptr<Service> service = manager.createService(_definition);
    service->setDescription("Does 100% of it.");
    EXPECT_THAT(support::readFile(_unit), StartsWith("[Unit]\nDescription=Does 100%% of it.\nAfter="));
    EXPECT_THROW(manager.createService(_definition), ServiceAlreadyExistsException);
    service->start();
    service->stop();
    manager.openService("Some Server")->remove();
    EXPECT_FALSE(std::filesystem::exists(_unit));
    EXPECT_THAT(_systemctl.lines,
                ElementsAre("--no-ask-password enable some-server.service", "--no-ask-password daemon-reload",
                            "reset-failed some-server.service",
                            "--no-ask-password --no-block start some-server.service",
                            "--no-ask-password --no-block stop some-server.service",
                            "--no-ask-password disable some-server.service",
                            "--no-ask-password daemon-reload", "reset-failed some-server.service"));
    EXPECT_THROW(manager.openService("Some Server"), ServiceDoesNotExistsException);
}

TEST_F(SCManagerTest, TellsWhatTheManagerRefused) {
    const SCManagerImpl manager(_folders, _tools);
    const std::string refusal = "System error message: Access denied. Error code: 4.";
    _systemctl.refuse = "enable";
    EXPECT_THAT(failureOf<ServiceException>([&] { manager.createService(_definition); }), EndsWith(refusal));
    EXPECT_FALSE(std::filesystem::exists(_unit));

    _systemctl.refuse = "";
    const std::unique_ptr<Service> service = manager.createService(_definition);
    _systemctl.refuse = "disable";
    EXPECT_THAT(failureOf<ServiceException>([&] { service->remove(); }), EndsWith(refusal));
    EXPECT_TRUE(std::filesystem::exists(_unit));
}

TEST(SystemctlTest, HandsWordsOverAsTheyAreAndKeepsTheAnswer) {
    const support::TempDir folder;
    const std::string program = folder.file("tool");
    support::writeFile(program, "#!/bin/sh\nprintf '[%s]\\n' \"$@\" >&2\nread line && echo typed\nexit 5\n");
    ::chmod(program.c_str(), 0755);
    const Systemctl::Result result = SystemctlImpl(program).run({"two words", "", "$HOME;`id`*"});
    EXPECT_EQ(errorText(result), "System error message: [two words] [] [$HOME;`id`*]. Error code: 5.");
    // More than a pipe holds.
    support::writeFile(program, "#!/bin/sh\nhead -c 300000 /dev/zero | tr '\\0' x\nkill -9 $$\n");
    const Systemctl::Result flood = SystemctlImpl(program).run({});
    EXPECT_EQ(flood.exitCode, 128 + 9);
    EXPECT_EQ(flood.message, std::string(2000, 'x'));
    EXPECT_THAT(errorText(SystemctlImpl(folder.file("missing")).run({})), EndsWith("Error code: 2."));
}

}  // namespace
