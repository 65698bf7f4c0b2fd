#pragma once

#include <cstddef>
#include <cstring>
#include <string>

namespace exceptions {

// Root of all failures that a caller or the environment can cause.
//
// The family stands apart from std::exception on purpose: a handler that catches exceptions::Exception means
// "this request failed", one that catches std::exception means "something we did not foresee".
class Exception {
public:
    virtual ~Exception() = default;

    // The whole message, zero-terminated; lives as long as the exception.
    virtual const char* what() const noexcept = 0;

protected:
    Exception() = default;
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
};

// Failures of the caller's own making, such as an argument that makes no sense.
class RuntimeException : public Exception {};

// Turns an abstract member of the family into one that can be thrown.
//
// The message lies inside the object, so that building, throwing and copying an exception needs no heap:
// failures can be reported while memory is short. A message has at most 4095 characters; what is longer is
// cut without a mark.
template <class Base>
class WithMessage : public Base {
public:
    explicit WithMessage(const char* message) noexcept {
        const std::size_t length = strnlen(message, sizeof(_message) - 1);
        std::memcpy(_message, message, length);
        std::memset(_message + length, 0, sizeof(_message) - length);
    }
    explicit WithMessage(const std::string& message) noexcept : WithMessage(message.c_str()) {}

    const char* what() const noexcept override { return _message; }

private:
    char _message[4096];
};

}  // namespace exceptions
