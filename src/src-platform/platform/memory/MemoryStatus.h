#pragma once

#include <cstdint>
#include <string>

#include "exceptions/Exception.h"

namespace platform::memory {

// The system does not tell how much memory there is.
class MemoryStatusException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

// Physical memory in bytes, asked anew on each call. Throws MemoryStatusException.
class MemoryStatus {
public:
    virtual ~MemoryStatus() = default;

    // What this process can still use without swapping.
    virtual std::uint64_t available() const = 0;

    // What the machine has.
    virtual std::uint64_t total() const = 0;
};

// Asks the kernel. In a container the machine may have more to give than the process may take: what is
// available is the smallest of MemAvailable and what each control group above the process still allows, for
// which the page cache on its inactive list counts as free (versions 1 and 2 of control groups).
class MemoryStatusImpl final : public MemoryStatus {
public:
    // The folders under which the kernel shows its figures.
    explicit MemoryStatusImpl(const std::string& procRoot = "/proc",
                              const std::string& cgroupRoot = "/sys/fs/cgroup");

    std::uint64_t available() const override;
    std::uint64_t total() const override;

private:
    struct Interface;

    std::uint64_t fromMeminfo(const std::string& key) const;
    std::uint64_t allowedByGroups() const;
    std::uint64_t allowedBy(const Interface& interface, std::string group) const;

    const std::string _procRoot;
    const std::string _cgroupRoot;
};

}  // namespace platform::memory
