#pragma once

#include <cstdint>
#include <string>

#include "exceptions/Exception.h"

namespace halvern::morvane {

// The failure of one call of a request, which ends its sequence.
class CallException : public exceptions::Exception {
public:
    CallException(const std::string& method, const std::string& callId, const std::string& message,
                  std::int32_t statusCode)
        : _method(method), _callId(callId), _message(message), _statusCode(statusCode) {}

    const char* what() const noexcept override { return _message.c_str(); }
    // The call's tag name.
    virtual const std::string& getMethod() const { return _method; }
    virtual const std::string& getCallId() const { return _callId; }
    virtual std::int32_t getStatusCode() const { return _statusCode; }

private:
    std::string _method;
    std::string _callId;
    std::string _message;
    std::int32_t _statusCode;
};

class ReadCallException final : public CallException {
public:
    using CallException::CallException;
};

class WriteCallException final : public CallException {
public:
    using CallException::CallException;
};

}  // namespace halvern::morvane
