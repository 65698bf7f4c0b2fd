#pragma once

#include <string>

#include "exceptions/Exception.h"
#include "io/IOException.h"

namespace windows::file {

class WindowsFileException : public io::IOException {};

class ModuleException final : public exceptions::WithMessage<WindowsFileException> {
public:
    using WithMessage::WithMessage;
};

class Module {
public:
    virtual ~Module() = default;

    // The full path of the running executable. Throws ModuleException.
    virtual std::string fileName() const = 0;
};

class ModuleImpl final : public Module {
public:
    std::string fileName() const override;
};

}  // namespace windows::file
