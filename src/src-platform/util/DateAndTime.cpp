#include "util/DateAndTime.h"

#include <ctime>

#include "debug/Assertion.h"

namespace util {

FixedStream<128> DateAndTime::now() noexcept {
    const std::time_t seconds = std::time(nullptr);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[256];
    // The process stays in the POSIX locale, so the names of days and months are English.
    const std::size_t ret = std::strftime(text, sizeof(text), "%a %b %e %H:%M:%S %Y", &local);
    CHECK(ret);
    FixedStream<128> now;
    now << text;
    return now;
}

}  // namespace util
