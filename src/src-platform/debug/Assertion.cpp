#include "debug/Assertion.h"

// The last step is the run time's own assertion in release builds too.
#undef NDEBUG
#include <cassert>
#include <cstdio>
#include <string>

#include "util/DateAndTime.h"
#include "util/FixedStream.h"
#include "windows/debug/ReportHook.h"

namespace debug {

void assertion(const char* expression, const char* description, const char* file,
               std::uint32_t line) noexcept {
    const std::string time = util::DateAndTime::now();
    util::FixedStream<4096> report;
    report << "----------------------------------------\nAssertion failed. Message: " << expression << "\n";
    if (description != nullptr) {
        report << "Description: " << description << "\n";
    }
    report << "File: " << file << "\nLine: " << line << "\nOccurred: " << time.c_str()
           << "\n\nPlease contact "
           << "the developers"
           << " and include this message.\nThank you for helping us improve the software.\n"
              "----------------------------------------\n\n";
    std::fputs(report.str(), stdout);
    std::fflush(stdout);
    // A file that cannot be written changes nothing: the report has already gone to standard output.
    if (std::FILE* kept = std::fopen("assertion.txt", "ae")) {
        std::fputs(report.str(), kept);
        std::fclose(kept);
    }
    windows::debug::ReportHook::reportToCurrent(report.str());
    assert(false);
    __builtin_unreachable();
}

}  // namespace debug
