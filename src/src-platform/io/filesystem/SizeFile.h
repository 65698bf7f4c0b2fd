#pragma once

#include <cstdint>
#include <string>

#include "exceptions/Exception.h"
#include "io/filesystem/LoadFile.h"

namespace io::filesystem {

class SizeFileException final : public exceptions::WithMessage<LoadFileException> {
public:
    using WithMessage::WithMessage;
};

class SizeFile {
public:
    virtual ~SizeFile() = default;

    // The size of the file in bytes, also while others use the file. A file that does not exist has the size
    // 0 unless mustExist is set. Throws SizeFileException.
    virtual std::uint64_t size(const std::string& name, bool mustExist) const = 0;
};

class SizeFileImpl final : public SizeFile {
public:
    std::uint64_t size(const std::string& name, bool mustExist) const override;
};

}  // namespace io::filesystem
