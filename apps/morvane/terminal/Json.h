#pragma once

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>

namespace halvern::morvane::client {

// Writes one document and a line end. Bytes that are no valid UTF-8 are shown as U+FFFD, and a number that is
// none as null: JSON knows neither.
void writeJson(std::ostream& out, const nlohmann::ordered_json& document);

// The same on one line, for output of a document for each line.
void writeJsonLine(std::ostream& out, const nlohmann::ordered_json& document);

}  // namespace halvern::morvane::client
