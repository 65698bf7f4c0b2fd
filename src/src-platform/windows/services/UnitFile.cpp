#include "windows/services/UnitFile.h"

#include <libxml/xmlstring.h>

#include <algorithm>
#include <string_view>

#include "exceptions/IllegalArgumentException.h"
#include "util/StringHelper.h"

namespace windows::services {

namespace {

constexpr std::string_view DESCRIPTION = "Description=";

void checkWord(const std::string& word) {
    const bool hasControl = std::any_of(
        word.begin(), word.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
    if (hasControl || xmlCheckUTF8(reinterpret_cast<const unsigned char*>(word.c_str())) != 1) {
        throw exceptions::IllegalArgumentException(
            "The text '" + word +
            "' can't stand in a unit file, because it holds control characters or isn't UTF-8. Use a path "
            "without them.");
    }
}

// Takes the manager's own meaning from '%'.
std::string plain(std::string word) {
    checkWord(word);
    util::StringHelper::replaceAll(word, "%", "%%");
    return word;
}

std::string quoted(const std::string& word) {
    std::string text = plain(word);
    util::StringHelper::replaceAll(text, "\\", "\\\\");
    util::StringHelper::replaceAll(text, "\"", "\\\"");
    return '"' + text + '"';
}

// The colon keeps '$' as it is. The manager takes no program whose own path holds a quote or a backslash,
// however it is written, but anything as an argument; env(1) then becomes the program, in the same process.
std::string commandLine(const std::vector<std::string>& command) {
    std::string line = ":";
    if (command.front().find_first_of("\"'\\") != std::string::npos) {
        line += "/usr/bin/env ";
    }
    for (const std::string& word : command) {
        line += (&word == &command.front() ? "" : " ") + quoted(word);
    }
    return line;
}

bool touches(const ServiceDefinition& definition, std::initializer_list<std::string_view> folders) {
    const auto lies = [&](const std::string& path) {
        return std::any_of(folders.begin(), folders.end(),
                           [&](std::string_view folder) { return path.starts_with(folder); });
    };
    return std::any_of(definition.command.begin(), definition.command.end(), lies) ||
           std::any_of(definition.writableFolders.begin(), definition.writableFolders.end(), lies);
}

// What the server never needs is taken from it. It does need: an IPv4 socket, the manager's notify socket,
// /proc/meminfo (so no ProcSubset=pid), and files in a few folders.
constexpr std::string_view HARDENING =
    "NoNewPrivileges=yes\n"
    "ProtectSystem=strict\n"
    "PrivateDevices=yes\n"
    "PrivateMounts=yes\n"
    "ProtectKernelTunables=yes\n"
    "ProtectKernelModules=yes\n"
    "ProtectKernelLogs=yes\n"
    "ProtectControlGroups=yes\n"
    "ProtectClock=yes\n"
    "ProtectHostname=yes\n"
    "ProtectProc=invisible\n"
    "LockPersonality=yes\n"
    "MemoryDenyWriteExecute=yes\n"
    "RestrictAddressFamilies=AF_INET AF_UNIX\n"
    "RestrictNamespaces=yes\n"
    "RestrictRealtime=yes\n"
    "RestrictSUIDSGID=yes\n"
    "RemoveIPC=yes\n"
    "SystemCallArchitectures=native\n"
    "SystemCallFilter=@system-service\n"
    "SystemCallFilter=~@privileged @resources\n"
    "SystemCallErrorNumber=EPERM\n"
    "UMask=0027\n";

}  // namespace

std::string UnitFile::nameOf(const std::string& serviceName) {
    std::string name = util::StringHelper::toLower(serviceName);
    util::StringHelper::replaceAll(name, " ", "-");
    return name + ".service";
}

std::string UnitFile::textOf(const ServiceDefinition& definition) {
    std::string text =
        "[Unit]\n" + std::string(DESCRIPTION) + plain(definition.displayName) +
        "\n"
        "After=network.target\n"
        // A server that can't start (a taken port, a broken configuration) is given up after five tries.
        "StartLimitIntervalSec=120\n"
        "StartLimitBurst=5\n"
        "\n[Service]\n"
        "Type=notify\n"
        "ExecStart=" +
        commandLine(definition.command) +
        "\n"
        "Restart=on-failure\n"
        "RestartSec=5\n";
    if (!definition.account.empty()) {
        text += "User=" + plain(definition.account) + "\n";
    }
    for (const std::string& folder : definition.writableFolders) {
        text += "ReadWritePaths=" + quoted(folder) + "\n";
    }
    // These would hide the program from itself if it lies there.
    text += touches(definition, {"/home/", "/root/", "/run/user/"}) ? "ProtectHome=read-only\n"
                                                                    : "ProtectHome=yes\n";
    text += touches(definition, {"/tmp/", "/var/tmp/"}) ? "PrivateTmp=no\n" : "PrivateTmp=yes\n";
    // In a user namespace of its own, a process has no say over the host's ports.
    text += definition.bindsPrivilegedPort ? "CapabilityBoundingSet=CAP_NET_BIND_SERVICE\n"
                                             "AmbientCapabilities=CAP_NET_BIND_SERVICE\n"
                                           : "CapabilityBoundingSet=\n"
                                             "PrivateUsers=yes\n";
    return text + std::string(HARDENING) + "\n[Install]\nWantedBy=multi-user.target\n";
}

std::string UnitFile::withDescription(const std::string& unit, const std::string& description) {
    const std::size_t begin = std::min(unit.find(DESCRIPTION), unit.size());
    const std::size_t end = std::min(unit.find('\n', begin), unit.size());
    return unit.substr(0, begin) + std::string(DESCRIPTION) + plain(description) + unit.substr(end);
}

}  // namespace windows::services
