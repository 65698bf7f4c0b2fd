#pragma once

#include <string>

#include "exceptions/Exception.h"
#include "io/IOException.h"

namespace io::filesystem {

class RemoveFileException final : public exceptions::WithMessage<io::IOException> {
public:
    using WithMessage::WithMessage;
};

class RemoveFile {
public:
    virtual ~RemoveFile() = default;

    // Deletes the file for good: it does not come back after a power cut. A file that does not exist is no
    // failure. Throws RemoveFileException.
    virtual void remove(const std::string& name) const = 0;
};

class RemoveFileImpl final : public RemoveFile {
public:
    void remove(const std::string& name) const override;
};

}  // namespace io::filesystem
