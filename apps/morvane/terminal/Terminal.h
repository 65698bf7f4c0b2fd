#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "server/Settings.h"

namespace halvern::morvane::client {

enum class Colour { PLAIN, BOLD, DIM, RED, GREEN, YELLOW, CYAN };

// What a stream of the program ends in, as far as writing to it goes.
struct Terminal {
    bool isTerminal = false;
    bool hasColours = false;
    std::size_t width = 80;  // columns

    // Looks at a descriptor of this process. Colours are for terminals that know them, unless NO_COLOR is set
    // to anything (no-color.org).
    static Terminal of(int descriptor, const Environment& environment);

    // The text in the colour, or as it is if there are no colours.
    std::string paint(Colour colour, const std::string& text) const;
};

// The columns that UTF-8 takes on a terminal: two for East Asian wide characters, none for marks that
// combine. Bytes that are no UTF-8 count one each.
std::size_t displayWidth(std::string_view text);

// The text with everything replaced that a terminal would obey instead of show: control characters, but for
// line feeds if keepLines. For whatever comes from files, names or a server.
std::string printable(std::string_view text, bool keepLines = false);

}  // namespace halvern::morvane::client
