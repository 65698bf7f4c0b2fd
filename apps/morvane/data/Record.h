#pragma once

#include <cstdint>
#include <string>

namespace halvern::morvane::client {

// One labelled text of an input, or the reason why there is none at this place.
struct Record {
    std::string label;
    std::string text;
    std::string place;    // for a person: "line 17", or the path of a file
    std::string problem;  // empty: label and text can be used
};

}  // namespace halvern::morvane::client
