#pragma once

#include <string>

#include "exceptions/Exception.h"

namespace windows::file {

class CreateFolderException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

class CreateFolder {
public:
    virtual ~CreateFolder() = default;

    // Makes one directory in a parent that exists. A name that is taken already is left as it is, and is a
    // failure only if mustNotExist is set; ExistsDir tells whether it stands for a directory.
    // Throws CreateFolderException.
    virtual void create(const std::string& name, bool mustNotExist) const = 0;
};

class CreateFolderImpl final : public CreateFolder {
public:
    void create(const std::string& name, bool mustNotExist) const override;
};

}  // namespace windows::file
