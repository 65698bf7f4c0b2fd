#include "server/ServiceControl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "system/Program.h"
#include "windows/com/xml/Library.h"
#include "windows/services/ServiceAccount.h"

namespace {

using namespace halvern::morvane;
using namespace windows::services;
using testing::ElementsAre;

class RefusedException final : public exceptions::WithMessage<ServiceException> {
public:
    using WithMessage::WithMessage;
};

// A manager that knows one service, which it also is.
struct FakeManager : SCManager, Service {
    explicit FakeManager(FakeManager* one = nullptr) : one(one == nullptr ? this : one) {}
    void close() override {}
    std::unique_ptr<Service> openService(const std::string& name) const override {
        if (one->refuses) {
            throw RefusedException("refused");
        }
        if (name != one->installed) {
            throw ServiceDoesNotExistsException("none");
        }
        return std::make_unique<FakeManager>(one);
    }
    std::unique_ptr<Service> createService(const ServiceDefinition& definition) const override {
        one->definition = definition;
        one->doings.push_back("create");
        return std::make_unique<FakeManager>(one);
    }
    void start() override { one->doings.push_back("start"); }
    void stop() override { one->doings.push_back("stop"); }
    void setDescription(const char* text) override { one->doings.push_back(text); }
    void remove() override { one->doings.push_back("remove"); }

    FakeManager* const one;
    std::string installed;
    std::vector<std::string> doings;
    ServiceDefinition definition;
    bool refuses = false;
};

// In a current directory of its own, as the program stands in its folder.
class ServiceControlTest : public testing::Test, public SCManagerFactory {
protected:
    ServiceControlTest() { std::filesystem::current_path(_folder.path()); }
    ~ServiceControlTest() override { std::filesystem::current_path(_before); }

    std::unique_ptr<SCManager> create() const override { return std::make_unique<FakeManager>(&_manager); }

    void install(const std::string& name, const std::string& root = "", const std::string& port = "9400") {
        support::writeFile("a b.xml", systemtest::configuration({.port = port, .classifierRootPath = root}));
        installService(name, "a b.xml", ConfigurationReader(MORVANE_SCHEMAS "/config/ConfigSchema.xsd"),
                       windows::file::CreateFolderImpl(), *this);
    }

    const std::filesystem::path _before = std::filesystem::current_path();
    const windows::com::xml::Library _library;
    const support::TempDir _folder;
    mutable FakeManager _manager;
};

TEST_F(ServiceControlTest, InstallsTheServiceWithAllThatItWrites) {
    install("Some Server");
    EXPECT_THAT(_manager.doings, ElementsAre("create", "Manages text classification requests."));
    const ServiceDefinition& service = _manager.definition;
    EXPECT_EQ(service.name, "Some Server");
    EXPECT_THAT(service.command, ElementsAre(std::filesystem::canonical("/proc/self/exe").string(), "-scm",
                                             "-config", "a b.xml"));
    const std::string here = std::filesystem::canonical(".");
    EXPECT_THAT(service.writableFolders, ElementsAre(here + "/logs", here + "/classifiers"));
    EXPECT_TRUE(std::filesystem::is_directory("logs/requests"));
    EXPECT_FALSE(service.bindsPrivilegedPort);

    std::filesystem::create_directories("data/x");
    std::filesystem::create_directory_symlink("data/x", "link");
    install("Some Server", "./link/", "1023");
    EXPECT_THAT(_manager.definition.writableFolders, ElementsAre(here + "/logs", here + "/data/x"));
    EXPECT_TRUE(_manager.definition.bindsPrivilegedPort);
}

TEST_F(ServiceControlTest, RunsTheServiceAsTheOwnerOfTheClassifiers) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "Only root can give files to others.";
    }
    constexpr uid_t NAMELESS = 54321;
    constexpr uid_t DAEMON = 1;
    const auto ownerOf = [](const char* path) {
        struct stat status {};
        return ::lstat(path, &status) == 0 ? static_cast<int>(status.st_uid) : -1;
    };
    install("Some Server");
    EXPECT_EQ(_manager.definition.account, "");

    support::writeFile("logs/log.txt", "x");
    ASSERT_EQ(::chown("classifiers", NAMELESS, NAMELESS), 0);
    EXPECT_THROW(install("Some Server"), ServiceAccountException);
    ASSERT_EQ(::chown("classifiers", DAEMON, DAEMON), 0);
    install("Some Server");
    EXPECT_EQ(_manager.definition.account, "daemon");
    for (const char* path : {"logs", "logs/requests", "logs/log.txt"}) {
        EXPECT_EQ(ownerOf(path), static_cast<int>(DAEMON)) << path;
    }
    EXPECT_EQ(ownerOf("a b.xml"), 0);

    // Whoever owns the folder of the log must not get somebody else's file by naming it.
    support::writeFile("secret", "x");
    const std::string secret = std::filesystem::absolute("secret");
    for (const auto link : {&::symlink, &::link}) {
        std::filesystem::remove("logs/log.txt");
        ASSERT_EQ(link(secret.c_str(), "logs/log.txt"), 0);
        install("Some Server");
        EXPECT_EQ(ownerOf("secret"), 0);
    }
}

TEST_F(ServiceControlTest, AsksFirstWhetherTheServiceIsThere) {
    _manager.installed = "Old Server";
    EXPECT_THROW(install("Old Server"), ServiceAlreadyExistsException);
    const std::pair<std::string, void (*)(const std::string&, const SCManagerFactory&)> rows[] = {
        {"remove", uninstallService}, {"start", startService}, {"stop", stopService}};
    for (const auto& [doing, operation] : rows) {
        _manager.doings.clear();
        EXPECT_THROW(operation("New Server", *this), ServiceDoesNotExistsException) << doing;
        // Not being able to tell is no answer.
        _manager.refuses = true;
        EXPECT_THROW(operation("Old Server", *this), RefusedException) << doing;
        EXPECT_THROW(install("New Server"), RefusedException);
        _manager.refuses = false;
        EXPECT_THAT(_manager.doings, ElementsAre());
        operation("Old Server", *this);
        EXPECT_THAT(_manager.doings, ElementsAre(doing));
    }
}

}  // namespace
