#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace halvern::morvane {

// Writes the document that a failed request gets. Knows nothing of the request, so it also serves where no
// request could be read. One object may render any number of times. Nothing fails here but memory
// (std::bad_alloc).
class ErrorResponse {
public:
    virtual ~ErrorResponse() = default;

    // Replaces out by the whole document and returns it. statusCode is one of the numbers of
    // server/StatusCode.h; the message may be empty and may hold any bytes.
    virtual std::string& render(std::string& out, std::int32_t statusCode, const std::string& message) = 0;
};

// Makes error responses. Shared by all connections.
class ErrorResponseFactory {
public:
    virtual ~ErrorResponseFactory() = default;
    virtual std::unique_ptr<ErrorResponse> create() const = 0;
};

}  // namespace halvern::morvane
