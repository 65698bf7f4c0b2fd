#pragma once

namespace halvern::morvane {

// The protocol version of one successful response: as text, "1.00" or "1.01", and as the number to compare.
struct ResponseVersion {
    char text[8];
    double number;
};

}  // namespace halvern::morvane
