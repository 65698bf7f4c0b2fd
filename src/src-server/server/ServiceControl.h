#pragma once

#include <string>

#include "server/Configuration.h"
#include "windows/file/CreateFolder.h"
#include "windows/services/SCManager.h"

namespace halvern::morvane {

inline constexpr const char* SERVICE_NAME = "Morvane Server";
inline constexpr const char* SERVICE_DESCRIPTION = "Manages text classification requests.";

// The service of a server whose program, log folder and root folder are given by their full paths. An empty
// account is the superuser's.
windows::services::ServiceDefinition serviceDefinition(const std::string& serviceName,
                                                       const std::string& program,
                                                       const std::string& configPath,
                                                       const std::string& account,
                                                       const std::string& logFolder,
                                                       const std::string& rootFolder, std::uint16_t port);

// The operations of the command line on the server as a service of this machine. All of them throw
// SCManagerException and ServiceException of windows::services. Except for installService, they throw
// ServiceDoesNotExistsException for a service that isn't installed.

// Registers the running executable as a service that starts with the machine and serves with the given
// configuration, whose path is kept as it is. Current directory must be the executable's.
//
// The service runs as the owner of the folder of the classifier files, since it must go on writing what lies
// there; a missing one is made and belongs to the owner of the folder around it. That user gets the folder of
// the log as well. Throws ServiceAlreadyExistsException for a service that is installed, and what reading the
// configuration and making folders throw. A failure to describe the service leaves it installed.
void installService(const std::string& serviceName, const std::string& configPath,
                    const ConfigurationReader& configurationReader,
                    const windows::file::CreateFolder& createFolder,
                    const windows::services::SCManagerFactory& managers);

void uninstallService(const std::string& serviceName, const windows::services::SCManagerFactory& managers);

// Both return when the manager has taken the request.
void startService(const std::string& serviceName, const windows::services::SCManagerFactory& managers);
void stopService(const std::string& serviceName, const windows::services::SCManagerFactory& managers);

// Any other failure than that there is no such service passes on.
bool serviceExists(const std::string& serviceName, const windows::services::SCManager& manager);

}  // namespace halvern::morvane
