#pragma once

#include <memory>
#include <string>

#include "windows/services/Service.h"

namespace windows::services {

// The service manager of this machine.
class SCManager {
public:
    virtual ~SCManager() = default;

    // Gives the manager back. Throws SCManagerException.
    virtual void close() = 0;

    // Opens a service, or creates one that starts with the machine. Both throw ServiceException:
    // ServiceDoesNotExistsException where there is none to open, ServiceAlreadyExistsException where there is
    // one to be created. The service must not outlive the manager.
    virtual std::unique_ptr<Service> openService(const std::string& name) const = 0;
    virtual std::unique_ptr<Service> createService(const ServiceDefinition& definition) const = 0;
};

class SCManagerFactory {
public:
    virtual ~SCManagerFactory() = default;

    // Throws SCManagerException.
    virtual std::unique_ptr<SCManager> create() const = 0;
};

// Where a manager is found.
struct ManagerFolders {
    std::string running = "/run/systemd/system";  // there while systemd runs the machine (sd_booted(3))
    std::string units = "/etc/systemd/system";    // the units that the administrator has made
};

// systemd, opened for its administrator: whoever may write the folder of units. Others may have been given
// the right to start and stop single units; they have systemctl for that.
class SCManagerImpl final : public SCManager {
public:
    // Throws SCManagerException where systemd isn't running, and for a user who is no administrator. The
    // tools must outlive the object.
    SCManagerImpl(const ManagerFolders& folders, const ServiceTools& tools);
    SCManagerImpl(const SCManagerImpl&) = delete;
    SCManagerImpl& operator=(const SCManagerImpl&) = delete;
    ~SCManagerImpl() override;

    void close() override;
    std::unique_ptr<Service> openService(const std::string& name) const override;
    std::unique_ptr<Service> createService(const ServiceDefinition& definition) const override;

private:
    const std::string _unitFolder;
    const ServiceTools _tools;
    int _handle = -1;  // of the folder of units
};

class SCManagerFactoryImpl final : public SCManagerFactory {
public:
    std::unique_ptr<SCManager> create() const override;

private:
    const SystemctlImpl _systemctl{};
    const io::filesystem::LoadFileImpl _loadFile{};
    const io::filesystem::SaveFileImpl _saveFile{};
    const io::filesystem::RemoveFileImpl _removeFile{};
};

}  // namespace windows::services
