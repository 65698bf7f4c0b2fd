#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "data/RecordReader.h"

namespace halvern::morvane::client {

// What there is in an input, found by reading all of it.
struct Survey {
    struct Class {
        std::string name;
        std::uint64_t texts = 0;
        std::uint64_t bytes = 0;
    };

    static constexpr std::size_t SHOWN_PROBLEMS = 10;

    std::uint64_t records = 0;
    std::uint64_t bad = 0;       // of these, those that can't be used
    std::uint64_t notUtf8 = 0;   // texts; they travel as they are, and match only texts in the same encoding
    std::vector<Class> classes;  // in the order in which they appear
    std::vector<std::string> problems;  // the first ones, as "line 7 has an empty label"
};

Survey survey(RecordReader& reader);

// Throws Failure (LOCAL_FILE), with the first problems, if any record can't be used.
void requireSound(const Survey& survey);

}  // namespace halvern::morvane::client
