#pragma once

#include "util/FixedStream.h"

namespace util {

// Wall-clock time as people read it in logs and reports.
class DateAndTime {
public:
    // The present local time in the form of asctime without its line feed, 24 characters: "Wed Nov 18
    // 13:25:51 2026". Needs no heap of its own, for reports of a process that has none left.
    static FixedStream<128> now() noexcept;
};

}  // namespace util
