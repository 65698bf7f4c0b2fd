#pragma once

#include <string>
#include <vector>

namespace windows::services {

// A service as the manager is told of it.
struct ServiceDefinition {
    std::string name;         // for people; the unit's name is made from it
    std::string displayName;  // describes the service until it has a description
    // The full path of the program, then its arguments, each as it is to arrive.
    std::vector<std::string> command;
    std::string account;                       // user name; empty for the superuser
    std::vector<std::string> writableFolders;  // full paths of folders that exist; all others are read-only
    bool bindsPrivilegedPort = false;          // a port below 1024
};

// The text of a unit file (systemd.unit(5), systemd.service(5), systemd.exec(5)).
class UnitFile {
public:
    // The file name of a service's unit: "Morvane Server" has "morvane-server.service".
    static std::string nameOf(const std::string& serviceName);

    // Throws exceptions::IllegalArgumentException for a word that no quoting brings into a unit file: one
    // with control characters, or one that is not UTF-8.
    static std::string textOf(const ServiceDefinition& definition);

    // The text with another description. Throws as textOf does.
    static std::string withDescription(const std::string& unit, const std::string& description);
};

}  // namespace windows::services
