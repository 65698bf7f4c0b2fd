#pragma once

#include <string>

#include "exceptions/Exception.h"

namespace windows::file {

class CurrentDirectoryException : public exceptions::Exception {};

class GetCurrentDirectoryException final : public exceptions::WithMessage<CurrentDirectoryException> {
public:
    using WithMessage::WithMessage;
};

class SetCurrentDirectoryException final : public exceptions::WithMessage<CurrentDirectoryException> {
public:
    using WithMessage::WithMessage;
};

// The current directory, which the whole process shares.
class CurrentDirectory {
public:
    virtual ~CurrentDirectory() = default;

    // Throws SetCurrentDirectoryException.
    virtual void set(const std::string& name) const = 0;

    // The full path with a slash at its end. Throws GetCurrentDirectoryException.
    virtual std::string get() const = 0;
};

class CurrentDirectoryImpl final : public CurrentDirectory {
public:
    void set(const std::string& name) const override;
    std::string get() const override;
};

}  // namespace windows::file
