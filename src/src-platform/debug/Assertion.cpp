#include "debug/Assertion.h"

// The last step is the run time's own assertion in release builds too.
#undef NDEBUG
#include <fcntl.h>

#include <cassert>
#include <cstdio>
#include <cstring>

#include "io/filesystem/FileSystemHelper.h"
#include "util/DateAndTime.h"
#include "util/FixedStream.h"
#include "windows/debug/ReportHook.h"

namespace debug {

void assertion(const char* expression, const char* description, const char* file,
               std::uint32_t line) noexcept {
    // All of this does without the heap: a promise may break just because there is no memory left.
    const auto time = util::DateAndTime::now();
    util::FixedStream<4096> report;
    report << "----------------------------------------\nAssertion failed. Message: " << expression << "\n";
    if (description != nullptr) {
        report << "Description: " << description << "\n";
    }
    report << "File: " << file << "\nLine: " << line << "\nOccurred: " << time.str() << "\n\nPlease contact "
           << "the developers"
           << " and include this message.\nThank you for helping us improve the software.\n"
              "----------------------------------------\n\n";
    std::fputs(report.str(), stdout);
    std::fflush(stdout);
    // A file that cannot be written changes nothing: the report has already gone to standard output.
    const io::filesystem::ScopedDescriptor kept(
        io::filesystem::openFile("assertion.txt", O_WRONLY | O_CREAT | O_APPEND, 0666));
    if (kept.isOpen()) {
        io::filesystem::writeAll(kept.get(), report.str(), std::strlen(report.str()));
    }
    windows::debug::ReportHook::reportToCurrent(report.str());
    assert(false);
    __builtin_unreachable();
}

}  // namespace debug
