#pragma once

#include <string>

#include "exceptions/Exception.h"

namespace io::filesystem {

class ExistsDirException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

class ExistsDir {
public:
    virtual ~ExistsDir() = default;

    // True if the name stands for a directory. Throws ExistsDirException where that cannot be found out.
    virtual bool exists(const std::string& name) const = 0;
};

class ExistsDirImpl final : public ExistsDir {
public:
    bool exists(const std::string& name) const override;
};

}  // namespace io::filesystem
