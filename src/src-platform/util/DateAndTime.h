#pragma once

#include <string>

namespace util {

// Wall-clock time as people read it in logs and reports.
class DateAndTime {
public:
    // The present local time in the form of asctime without its line feed, 24 characters: "Wed Nov 18
    // 13:25:51 2026".
    static std::string now();
};

}  // namespace util
