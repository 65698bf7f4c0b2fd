#pragma once

#include <string>

#include "server/ErrorResponse.h"
#include "util/StringStream.h"

namespace halvern::morvane {

// The error document. Immutable after construction.
class XmlErrorResponseImpl final : public ErrorResponse {
public:
    // Both go into the document as they are, without escaping.
    XmlErrorResponseImpl(const std::string& responseNamespace, const std::string& version);
    std::string& render(std::string& out, std::int32_t statusCode, const std::string& message) override;

private:
    util::StringStream<2048> _header;
    util::StringStream<2048> _footer;
};

class XmlErrorResponseFactoryImpl final : public ErrorResponseFactory {
public:
    // The target namespace of the response schema and the version on that schema's root: the version that a
    // client asked for may not be known when a request fails.
    XmlErrorResponseFactoryImpl(std::string responseNamespace, std::string version);
    std::unique_ptr<ErrorResponse> create() const override;

private:
    std::string _namespace;
    std::string _version;
};

}  // namespace halvern::morvane
