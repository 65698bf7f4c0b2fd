#pragma once

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <string>

#include "terminal/Terminal.h"

namespace halvern::morvane::client {

// A bar that fills on the last line of a terminal, with rate, time left and errors; silent where there is no
// terminal.
class Progress {
public:
    using Clock = std::chrono::steady_clock;

    // total is what done grows to, in units; from is where it begins, which counts for no rate.
    Progress(std::ostream& out, const Terminal& terminal, const std::string& unit, std::uint64_t total,
             std::uint64_t from = 0);
    ~Progress() { clear(); }

    void show(std::uint64_t done, std::uint64_t errors);
    // Takes the bar away, so that something else can be written.
    void clear();

    // The line for this moment, at most so many columns wide.
    static std::string line(std::size_t width, const std::string& unit, std::uint64_t done,
                            std::uint64_t total, std::uint64_t doneSinceStart, double seconds,
                            std::uint64_t errors);

private:
    std::ostream& _out;
    const Terminal _terminal;
    const std::string _unit;
    const std::uint64_t _total;
    const std::uint64_t _from;
    const Clock::time_point _start = Clock::now();
    bool _isShown = false;
};

// Seconds as "0:07", "12:34" or "1:02:03".
std::string durationText(double seconds);

}  // namespace halvern::morvane::client
