#pragma once

#include <cstdint>
#include <string>

#include "exceptions/Exception.h"
#include "io/IOException.h"
#include "util/Bytes.h"

namespace io::filesystem {

class LoadFileException : public io::IOException {};

class LoadFileExceptionImpl final : public exceptions::WithMessage<LoadFileException> {
public:
    using WithMessage::WithMessage;
};

// Another process or thread holds a lock or a lease on the file; a later try may succeed.
class LoadFileLockedViolationException final : public exceptions::WithMessage<LoadFileException> {
public:
    using WithMessage::WithMessage;
};

// The file is in a use that excludes reading it; a later try may succeed.
class LoadFileSharingViolationException final : public exceptions::WithMessage<LoadFileException> {
public:
    using WithMessage::WithMessage;
};

// Reads files of at most 2,147,483,647 bytes whole. Safe from any thread.
class LoadFile {
public:
    virtual ~LoadFile() = default;

    // The first bytes bytes of the file, or all of it if bytes is 0.
    // Throws a LoadFileException, also for a file that holds fewer bytes than asked for.
    virtual util::Bytes load(const std::string& name, std::uint32_t bytes = 0) const = 0;
};

class LoadFileImpl final : public LoadFile {
public:
    util::Bytes load(const std::string& name, std::uint32_t bytes = 0) const override;
};

}  // namespace io::filesystem
