#pragma once

#include <cstdint>

#include "files/Inspection.h"
#include "util/Bytes.h"

namespace halvern::morvane::client::files {

// Versions 3 and 4, which are read but no longer written.
constexpr bool isOldVersion(std::uint32_t dataVersion) { return dataVersion == 3 || dataVersion == 4; }

// As inspect, for data of such a version. The view stays empty.
void inspectOld(const util::Bytes& data, Inspection& result);

}  // namespace halvern::morvane::client::files
