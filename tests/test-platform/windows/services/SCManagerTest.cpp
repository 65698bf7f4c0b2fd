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
    EXPECT_EQ(support::readFile(_unit),
              UnitFile::withDescription(UnitFile::textOf(_definition), "Does 100% of it."));
    EXPECT_THAT(support::readFile(_unit), StartsWith("[Unit]\nDescription=Does 100%% of it.\nAfter="));
    EXPECT_THAT(
        failureOf<ServiceAlreadyExistsException>([&] { manager.createService(_definition); }),
        StartsWith(
            "Error creating new service using the 'CreateService' system call. System error message: "));
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
    EXPECT_EQ(failureOf<ServiceDoesNotExistsException>([&] { manager.openService("Some Server"); }),
              "Error opening the 'Some Server 'using the 'OpenService' system call. System error message: No "
              "such file or directory. Error code: 2.");
}

TEST_F(SCManagerTest, TellsWhatTheManagerRefused) {
    const SCManagerImpl manager(_folders, _tools);
    const std::string refusal = "System error message: Access denied. Error code: 4.";
    _systemctl.refuse = "enable";
    EXPECT_EQ(failureOf<ServiceException>([&] { manager.createService(_definition); }),
              "Error creating new service using the 'CreateService' system call. " + refusal);
    EXPECT_FALSE(std::filesystem::exists(_unit));

    _systemctl.refuse = "";
    const std::unique_ptr<Service> service = manager.createService(_definition);
    const std::tuple<std::string, std::function<void()>, std::string> rows[] = {
        {"start", [&] { service->start(); },
         "Could not start service using the 'StartService' system call. "},
        {"stop", [&] { service->stop(); }, "Could not stop service using the 'ControlService' system call. "},
        {"daemon-reload", [&] { service->setDescription("x"); },
         "Could not set service description using 'ChangeServiceConfig2'. "},
        {"disable", [&] { service->remove(); }, "Could not delete service using 'DeleteService'. "},
    };
    for (const auto& [refuse, action, words] : rows) {
        _systemctl.refuse = refuse;
        EXPECT_EQ(failureOf<ServiceException>(action), words + refusal);
        EXPECT_TRUE(std::filesystem::exists(_unit));
    }
}

TEST(SystemctlTest, HandsWordsOverAsTheyAreAndKeepsTheAnswer) {
    const support::TempDir folder;
    const std::string program = folder.file("tool");
    support::writeFile(program, "#!/bin/sh\nprintf '[%s]\\n' \"$@\" >&2\nread line && echo typed\nexit 5\n");
    ::chmod(program.c_str(), 0755);
    const Systemctl::Result result = SystemctlImpl(program).run({"two words", "", "$HOME;`id`*"});
    EXPECT_EQ(errorText(result), "System error message: [two words] [] [$HOME;`id`*]. Error code: 5.");
    EXPECT_EQ(errorText({1, "A whole sentence."}), "System error message: A whole sentence. Error code: 1.");
    EXPECT_EQ(errorText({1, ""}), "System error message: Error message not found. Error code: 1.");

    // More than a pipe holds.
    support::writeFile(program, "#!/bin/sh\nhead -c 300000 /dev/zero | tr '\\0' x\nkill -9 $$\n");
    const Systemctl::Result flood = SystemctlImpl(program).run({});
    EXPECT_EQ(flood.exitCode, 128 + 9);
    EXPECT_EQ(flood.message, std::string(2000, 'x'));
    EXPECT_EQ(errorText(SystemctlImpl(folder.file("missing")).run({})),
              "System error message: No such file or directory. Error code: 2.");
}

}  // namespace
