#pragma once

#include <string>
#include <vector>

namespace halvern::morvane::client {

// What is to be said about the configuration of a server, each in a sentence or two.
struct ConfigFindings {
    std::vector<std::string> complaints;  // the server wouldn't start
    std::vector<std::string> notes;       // it would, but perhaps not as meant
};

// Reads a configuration with the server's own schema and reader, and beyond the first failure, at which the
// server stops. schemaPath is that of ConfigSchema.xsd. Throws
// Failure with LOCAL_FILE if that can't be read. Needs a windows::com::xml::Library.
ConfigFindings checkConfig(const std::string& schemaPath, const std::string& document);

// A configuration to begin with, which explains itself.
std::string commentedConfig();

}  // namespace halvern::morvane::client
