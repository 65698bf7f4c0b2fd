#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "server/ResponseVersion.h"
#include "util/Bytes.h"

namespace halvern::morvane {

// A call, or the element around calls. What fails in here although the schema has let the request through
// throws the XMLException family, or InternalCallException for a text.
class RequestElement {
public:
    virtual ~RequestElement() = default;

    // Throws for a missing attribute.
    virtual std::string getAttribute(std::string_view name) const = 0;
    virtual bool hasAttribute(std::string_view name) const = 0;
    // The qualified name, prefix included.
    virtual std::string getTagName() const = 0;
    // The text that the attribute textId names, decoded anew each time. Where several have that id, a plain
    // text goes before one in Base64, and then the first in document order.
    virtual util::Bytes getText() const = 0;
};

// The element readCalls or writeCalls with its calls.
class RequestSequence {
public:
    virtual ~RequestSequence() = default;

    virtual const RequestElement& getElement() const = 0;
    // In document order.
    virtual void forEachCall(const std::function<void(const RequestElement& call)>& action) const = 0;
};

// A valid request. All that it hands out is valid as long as itself and the bytes that it was read from.
class Request {
public:
    virtual ~Request() = default;

    virtual ResponseVersion getVersion() const = 0;
    // Null if the request doesn't have exactly one.
    virtual const RequestSequence* getReadCalls() const = 0;
    virtual const RequestSequence* getWriteCalls() const = 0;
};

}  // namespace halvern::morvane
