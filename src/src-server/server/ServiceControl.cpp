#include "server/ServiceControl.h"

#include <filesystem>
#include <memory>

#include "server/Start.h"
#include "windows/file/Module.h"
#include "windows/services/ServiceAccount.h"

namespace halvern::morvane {

namespace {

using windows::services::SCManager;
using windows::services::SCManagerFactory;
using windows::services::Service;
using windows::services::ServiceAccount;

constexpr std::uint16_t FIRST_FREE_PORT = 1024;

std::string sentence(const std::string& serviceName, const char* what) {
    return "The service with the name '" + serviceName + "' " + what;
}

// The folder is there afterwards, and belongs to the account that is returned.
ServiceAccount accountFor(const std::string& root, const windows::file::CreateFolder& createFolder) {
    if (std::filesystem::exists(root)) {
        return ServiceAccount::ownerOf(root);
    }
    createFolder.create(root, false);
    const ServiceAccount account = ServiceAccount::ownerOf(root + "/..");
    account.takeOver(root);
    return account;
}

// The service cannot make what it needs where everything else is read-only to it, and its user could not
// write what this process, run by the administrator, has just begun.
void prepareLogs(const ServiceAccount& account, const windows::file::CreateFolder& createFolder) {
    createFolder.create(LOG_DIRECTORY, false);
    createFolder.create(CAPTURE_DIRECTORY, false);
    for (const char* path : {LOG_DIRECTORY, LOG_FILE, CAPTURE_DIRECTORY}) {
        account.takeOver(path);
    }
}

std::unique_ptr<Service> openInstalled(const std::string& serviceName, const SCManager& manager) {
    if (!serviceExists(serviceName, manager)) {
        throw windows::services::ServiceDoesNotExistsException(sentence(serviceName, "is not installed."));
    }
    return manager.openService(serviceName);
}

}  // namespace

windows::services::ServiceDefinition serviceDefinition(const std::string& serviceName,
                                                       const std::string& program,
                                                       const std::string& configPath,
                                                       const std::string& account,
                                                       const std::string& logFolder,
                                                       const std::string& rootFolder, std::uint16_t port) {
    return {
        .name = serviceName,
        .displayName = serviceName,
        .command = {program, "-scm", "-config", configPath},
        .account = account,
        .writableFolders = {logFolder, rootFolder},
        .bindsPrivilegedPort = port < FIRST_FREE_PORT,
    };
}

void installService(const std::string& serviceName, const std::string& configPath,
                    const ConfigurationReader& configurationReader,
                    const windows::file::CreateFolder& createFolder, const SCManagerFactory& managers) {
    const std::unique_ptr<SCManager> manager = managers.create();
    if (serviceExists(serviceName, *manager)) {
        throw windows::services::ServiceAlreadyExistsException(
            sentence(serviceName, "is already installed."));
    }
    const Configuration configuration = configurationReader.read(configPath, [](std::uint32_t, bool) {});
    const std::string root = configuration.rootPath();
    const ServiceAccount account = accountFor(root, createFolder);
    const std::string user = account.name();
    prepareLogs(account, createFolder);
    const std::unique_ptr<Service> service = manager->createService(serviceDefinition(
        serviceName, windows::file::ModuleImpl().fileName(), configPath, user,
        std::filesystem::canonical(LOG_DIRECTORY), std::filesystem::canonical(root), configuration.port));
    service->setDescription(SERVICE_DESCRIPTION);
}

void uninstallService(const std::string& serviceName, const SCManagerFactory& managers) {
    const std::unique_ptr<SCManager> manager = managers.create();
    openInstalled(serviceName, *manager)->remove();
}

void startService(const std::string& serviceName, const SCManagerFactory& managers) {
    const std::unique_ptr<SCManager> manager = managers.create();
    openInstalled(serviceName, *manager)->start();
}

void stopService(const std::string& serviceName, const SCManagerFactory& managers) {
    const std::unique_ptr<SCManager> manager = managers.create();
    openInstalled(serviceName, *manager)->stop();
}

bool serviceExists(const std::string& serviceName, const SCManager& manager) {
    try {
        manager.openService(serviceName);
        return true;
    } catch (const windows::services::ServiceDoesNotExistsException&) {
        return false;
    }
}

}  // namespace halvern::morvane
