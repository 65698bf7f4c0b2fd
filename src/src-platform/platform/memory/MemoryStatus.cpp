#include "platform/memory/MemoryStatus.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <limits>
#include <optional>
#include <sstream>
#include <string_view>

#include "util/FixedStream.h"

namespace platform::memory {

namespace {

constexpr std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();

// The whole of a small file that the kernel makes up; errno tells why there is none.
std::optional<std::string> read(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return std::nullopt;
    }
    std::string content;
    char part[4096];
    ssize_t count = 0;
    while ((count = ::read(file, part, sizeof(part))) > 0 || (count < 0 && errno == EINTR)) {
        content.append(part, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    const int error = errno;
    close(file);
    errno = error;
    return count < 0 ? std::nullopt : std::optional(content);
}

// The number at the start of text, behind blanks.
std::optional<std::uint64_t> numberIn(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    std::uint64_t number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc() ? std::optional(number) : std::nullopt;
}

std::optional<std::uint64_t> numberOf(const std::string& path) {
    const std::optional<std::string> content = read(path);
    return content ? numberIn(*content) : std::nullopt;
}

// The number behind key in a file with a key and a number on each line.
std::optional<std::uint64_t> numberOf(const std::string& path, const std::string& key) {
    std::istringstream lines(read(path).value_or(""));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(key)) {
            return numberIn(std::string_view(line).substr(key.size()));
        }
    }
    return std::nullopt;
}

}  // namespace

// The names of one version of the memory controller.
struct MemoryStatusImpl::Interface {
    const char* folder;
    const char* limit;
    const char* usage;
    const char* inactive;
};

MemoryStatusImpl::MemoryStatusImpl(const std::string& procRoot, const std::string& cgroupRoot)
    : _procRoot(procRoot), _cgroupRoot(cgroupRoot) {}

std::uint64_t MemoryStatusImpl::available() const {
    return std::min(fromMeminfo("MemAvailable:"), allowedByGroups());
}

std::uint64_t MemoryStatusImpl::total() const { return fromMeminfo("MemTotal:"); }

std::uint64_t MemoryStatusImpl::fromMeminfo(const std::string& key) const {
    errno = ENODATA;  // stays if the file is there but does not know the key
    const std::optional<std::uint64_t> kibibytes = numberOf(_procRoot + "/meminfo", key);
    if (!kibibytes) {
        const auto error = static_cast<std::uint32_t>(errno);
        util::FixedStream<4096> message;
        message << "Failed to get memory status using 'GlobalMemoryStatusEx'. ";
        message.appendSystemError(error);
        throw MemoryStatusException(message.str());
    }
    return *kibibytes * 1024;
}

// A line of the process's groups is "0::/path" for version 2 and "4:memory:/path" for version 1.
std::uint64_t MemoryStatusImpl::allowedByGroups() const {
    constexpr Interface version1{"/memory", "/memory.limit_in_bytes", "/memory.usage_in_bytes",
                                 "total_inactive_file "};
    constexpr Interface version2{"", "/memory.max", "/memory.current", "inactive_file "};
    std::uint64_t allowed = unlimited;
    std::istringstream lines(read(_procRoot + "/self/cgroup").value_or(""));
    for (std::string id, controllers, group; std::getline(lines, id, ':') &&
                                             std::getline(lines, controllers, ':') &&
                                             std::getline(lines, group);) {
        if (controllers.empty()) {
            allowed = std::min(allowed, allowedBy(version2, group));
        } else if (("," + controllers + ",").find(",memory,") != std::string::npos) {
            allowed = std::min(allowed, allowedBy(version1, group));
        }
    }
    return allowed;
}

// Looks at the group and all groups above it. A path that isn't visible from inside a container is passed
// over; the root is visible there, and is the container's own group.
std::uint64_t MemoryStatusImpl::allowedBy(const Interface& interface, std::string group) const {
    std::uint64_t allowed = unlimited;
    for (;;) {
        group.erase(group.find_last_not_of('/') + 1);
        const std::string folder = _cgroupRoot + interface.folder + group;
        const std::optional<std::uint64_t> limit = numberOf(folder + interface.limit);
        const std::optional<std::uint64_t> usage = numberOf(folder + interface.usage);
        if (limit && usage) {
            const std::uint64_t inactive = numberOf(folder + "/memory.stat", interface.inactive).value_or(0);
            const std::uint64_t inUse = *usage - std::min(inactive, *usage);
            allowed = std::min(allowed, *limit - std::min(inUse, *limit));
        }
        if (!group.starts_with('/')) {
            return allowed;
        }
        group.erase(group.rfind('/'));
    }
}

}  // namespace platform::memory
