#pragma once

#include <string>

#include "io/filesystem/LoadFile.h"
#include "io/filesystem/RemoveFile.h"
#include "io/filesystem/SaveFile.h"
#include "windows/services/ServiceExceptions.h"
#include "windows/services/Systemctl.h"
#include "windows/services/UnitFile.h"

namespace windows::services {

// One service that the manager knows. Every operation throws ServiceException, and none may follow close.
class Service {
public:
    virtual ~Service() = default;

    // Gives the service back; it stays what it is.
    virtual void close() = 0;

    // Asks the manager to start or to stop it; returns when the manager has taken the request.
    virtual void start() = 0;
    virtual void stop() = 0;

    // What people are shown. Throws for null.
    virtual void setDescription(const char* text) = 0;

    // Removes it for good. A service that runs goes on running until it is stopped.
    virtual void remove() = 0;
};

// The doings of a service: what they work on outside this process.
struct ServiceTools {
    const Systemctl& systemctl;
    const io::filesystem::LoadFile& loadFile;
    const io::filesystem::SaveFile& saveFile;
    const io::filesystem::RemoveFile& removeFile;
};

// A unit file in the manager's folder. Folder and tools must outlive the object.
class ServiceImpl final : public Service {
public:
    // Opens a service. Throws ServiceDoesNotExistsException if the folder has no such unit.
    ServiceImpl(const std::string& unitFolder, const std::string& name, const ServiceTools& tools);

    // Creates a service that starts with the machine, and opens it. Throws ServiceAlreadyExistsException if
    // there is one of that name; whatever is thrown, nothing of the new one stays.
    ServiceImpl(const std::string& unitFolder, const ServiceDefinition& definition,
                const ServiceTools& tools);

    ServiceImpl(const ServiceImpl&) = delete;
    ServiceImpl& operator=(const ServiceImpl&) = delete;
    ~ServiceImpl() override;

    void close() override;
    void start() override;
    void stop() override;
    void setDescription(const char* text) override;
    void remove() override;

private:
    void open(const std::string& name);
    void create(const ServiceDefinition& definition);
    void undoCreation() const noexcept;
    void forgetFailures() const;
    void command(const std::vector<std::string>& arguments, const char* complaint) const;

    const std::string _unit;
    const std::string _path;
    const ServiceTools _tools;
    int _serviceHandle = -1;  // of the unit file
};

}  // namespace windows::services
