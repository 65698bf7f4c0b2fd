#pragma once

#include "server/XmlHook.h"

namespace halvern::morvane {

// Stands in where requests aren't captured.
class EmptyXmlHookImpl final : public XmlHook {
public:
    void save(const std::string&) override {}
};

class EmptyXmlHookFactoryImpl final : public XmlHookFactory {
public:
    std::unique_ptr<XmlHook> create() const override { return std::make_unique<EmptyXmlHookImpl>(); }
};

}  // namespace halvern::morvane
