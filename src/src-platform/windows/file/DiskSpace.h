#pragma once

#include <cstdint>
#include <string>

#include "exceptions/Exception.h"

namespace windows::file {

class DiskSpaceException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

class DiskSpace {
public:
    virtual ~DiskSpace() = default;

    // The free bytes of the directory's file system that this process may use: without what the file system
    // keeps back for the administrator. Throws DiskSpaceException.
    virtual std::uint64_t free(const std::string& directory) const = 0;
};

class DiskSpaceImpl final : public DiskSpace {
public:
    std::uint64_t free(const std::string& directory) const override;
};

}  // namespace windows::file
