#include "terminal/Progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>

#include "terminal/Table.h"

namespace halvern::morvane::client {

Progress::Progress(std::ostream& out, const Terminal& terminal, const std::string& unit, std::uint64_t total,
                   std::uint64_t from)
    : _out(out), _terminal(terminal), _unit(unit), _total(total), _from(from) {}

void Progress::show(std::uint64_t done, std::uint64_t errors) {
    if (!_terminal.isTerminal) {
        return;
    }
    const std::chrono::duration<double> elapsed = Clock::now() - _start;
    // The last column stays free: a terminal that wraps there would scroll with every line.
    _out << "\r\033[K"
         << line(_terminal.width - 1, _unit, done, _total, done - std::min(done, _from), elapsed.count(),
                 errors)
         << std::flush;
    _isShown = true;
}

void Progress::clear() {
    if (_isShown) {
        _out << "\r\033[K" << std::flush;
        _isShown = false;
    }
}

std::string Progress::line(std::size_t width, const std::string& unit, std::uint64_t done,
                           std::uint64_t total, std::uint64_t doneSinceStart, double seconds,
                           std::uint64_t errors) {
    const double share =
        total == 0 ? 1 : std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
    const double rate = seconds > 0 ? static_cast<double>(doneSinceStart) / seconds : 0;
    char text[16];
    std::snprintf(text, sizeof(text), "%3.0f %%", std::floor(share * 100));
    std::string figures = std::string(text) + "  " + countText(done) + " of " + countText(total) + " " + unit;
    if (rate > 0) {
        figures += "  " + countText(static_cast<std::uint64_t>(rate)) + "/s";
        figures += "  " + durationText(static_cast<double>(total - std::min(done, total)) / rate) + " left";
    }
    if (errors > 0) {
        figures += "  " + countText(errors) + (errors == 1 ? " error" : " errors");
    }
    constexpr std::size_t SMALLEST_BAR = 10;
    constexpr std::size_t LARGEST_BAR = 30;
    if (width >= figures.size() + SMALLEST_BAR + 3) {
        const std::size_t bar = std::min(width - figures.size() - 3, LARGEST_BAR);
        const auto filled = static_cast<std::size_t>(share * static_cast<double>(bar));
        return "[" + std::string(filled, '#') + std::string(bar - filled, '.') + "] " + figures;
    }
    return figures.substr(0, width);
}

std::string durationText(double seconds) {
    const auto whole = static_cast<std::uint64_t>(std::llround(std::clamp(seconds, 0.0, 3.6e9)));
    char text[32];
    if (whole < 3600) {
        std::snprintf(text, sizeof(text), "%u:%02u", static_cast<unsigned>(whole / 60),
                      static_cast<unsigned>(whole % 60));
    } else {
        std::snprintf(text, sizeof(text), "%llu:%02u:%02u", static_cast<unsigned long long>(whole / 3600),
                      static_cast<unsigned>(whole / 60 % 60), static_cast<unsigned>(whole % 60));
    }
    return text;
}

}  // namespace halvern::morvane::client
