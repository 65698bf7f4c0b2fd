#pragma once

#include <cstdint>
#include <string>

namespace windows::com::xml {

// Base of the classes of this layer: gives all their failures one form.
class ExceptionThrower {
public:
    virtual ~ExceptionThrower() = default;

protected:
    ExceptionThrower() = default;
    ExceptionThrower(const ExceptionThrower&) = default;
    ExceptionThrower& operator=(const ExceptionThrower&) = default;

    // Returns if result is 0. Otherwise throws the exception of the class with text, an empty line and the
    // words for systemError, an errno value; 0 stands for a failure that no system call caused.
    void throwIfFailed(std::int32_t result, const std::string& text, std::uint32_t systemError = 0) const;

    // text, an empty line and the words for systemError.
    static std::string withSystemError(const std::string& text, std::uint32_t systemError);

private:
    [[noreturn]] virtual void raise(const std::string& text) const = 0;
};

}  // namespace windows::com::xml
