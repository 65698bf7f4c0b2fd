#pragma once

#include <memory>
#include <string>

namespace halvern::morvane {

// Sees the bytes of every request before anything is known about them.
class XmlHook {
public:
    virtual ~XmlHook() = default;

    // Never throws an exceptions::Exception: what a hook can't do must not cost the client its answer.
    virtual void save(const std::string& request) = 0;
};

// Makes one hook for each connection. Shared by all connections.
class XmlHookFactory {
public:
    virtual ~XmlHookFactory() = default;
    virtual std::unique_ptr<XmlHook> create() const = 0;
};

}  // namespace halvern::morvane
