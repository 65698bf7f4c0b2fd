#include "terminal/Json.h"

#include <nlohmann/json.hpp>
#include <ostream>

namespace halvern::morvane::client {

namespace {

constexpr auto REPLACE = nlohmann::ordered_json::error_handler_t::replace;

}  // namespace

void writeJson(std::ostream& out, const nlohmann::ordered_json& document) {
    constexpr int INDENT = 2;
    out << document.dump(INDENT, ' ', false, REPLACE) << "\n";
}

void writeJsonLine(std::ostream& out, const nlohmann::ordered_json& document) {
    out << document.dump(-1, ' ', false, REPLACE) << "\n";
}

}  // namespace halvern::morvane::client
