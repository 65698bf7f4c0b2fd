#pragma once

#include <string>

#include "exceptions/Exception.h"

namespace windows::file {

class DeleteFileException : public exceptions::Exception {};

class DeleteFileExceptionImpl final : public exceptions::WithMessage<DeleteFileException> {
public:
    using WithMessage::WithMessage;
};

class DeleteFileAccessDeniedException final : public exceptions::WithMessage<DeleteFileException> {
public:
    using WithMessage::WithMessage;
};

class DeleteFile {
public:
    virtual ~DeleteFile() = default;

    // Deletes the file. One that is missing is a failure only if mustExist is set. Throws a
    // DeleteFileException.
    virtual void remove(const std::string& name, bool mustExist) const = 0;
};

class DeleteFileImpl final : public DeleteFile {
public:
    void remove(const std::string& name, bool mustExist) const override;
};

}  // namespace windows::file
