#include "terminal/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>

#include "util/Utf8.h"

namespace halvern::morvane::client {

namespace {

const char* codeOf(Colour colour) {
    switch (colour) {
        case Colour::BOLD:
            return "1";
        case Colour::DIM:
            return "2";
        case Colour::RED:
            return "31";
        case Colour::GREEN:
            return "32";
        case Colour::YELLOW:
            return "33";
        case Colour::CYAN:
            return "36";
        case Colour::PLAIN:
            break;
    }
    return "0";
}

struct Character {
    std::uint32_t code;
    std::size_t bytes;
};

// The character at the start of text, which isn't empty; a byte that begins no valid one stands for itself.
Character decode(std::string_view text) {
    const util::Utf8Character found = util::firstUtf8Character(text);
    return found.length != 0 ? Character{found.character, found.length}
                             : Character{static_cast<unsigned char>(text.front()), 1};
}

struct Range {
    std::uint32_t first;
    std::uint32_t last;
};

template <std::size_t N>
bool isIn(const Range (&ranges)[N], std::uint32_t code) {
    for (const Range& range : ranges) {
        if (code >= range.first && code <= range.last) {
            return true;
        }
    }
    return false;
}

// The blocks of the Unicode standard that people write in, not each character of it.
constexpr Range COMBINING[] = {{0x0300, 0x036F}, {0x0483, 0x0489}, {0x0591, 0x05BD}, {0x064B, 0x065F},
                               {0x093C, 0x093C}, {0x0941, 0x0948}, {0x094D, 0x094D}, {0x0E31, 0x0E31},
                               {0x0E34, 0x0E3A}, {0x0E47, 0x0E4E}, {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF},
                               {0x200B, 0x200F}, {0x20D0, 0x20FF}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}};
constexpr Range WIDE[] = {{0x1100, 0x115F},  {0x2E80, 0x303E},   {0x3041, 0xA4CF},   {0xA960, 0xA97F},
                          {0xAC00, 0xD7A3},  {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},
                          {0xFFE0, 0xFFE6},  {0x1F300, 0x1F64F}, {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF},
                          {0x20000, 0x3FFFD}};

}  // namespace

Terminal Terminal::of(int descriptor, const Environment& environment) {
    Terminal terminal;
    terminal.isTerminal = ::isatty(descriptor) == 1;
    if (!terminal.isTerminal) {
        return terminal;
    }
    const std::string kind = environment("TERM").value_or("");
    const bool isUnwanted = !environment("NO_COLOR").value_or("").empty();
    terminal.hasColours = !isUnwanted && !kind.empty() && kind != "dumb";
    winsize size = {};
    if (::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        terminal.width = size.ws_col;
    }
    return terminal;
}

std::string Terminal::paint(Colour colour, const std::string& text) const {
    if (!hasColours || colour == Colour::PLAIN || text.empty()) {
        return text;
    }
    return std::string("\x1B[") + codeOf(colour) + "m" + text + "\x1B[0m";
}

std::size_t displayWidth(std::string_view text) {
    std::size_t width = 0;
    while (!text.empty()) {
        const Character character = decode(text);
        width += character.bytes == 1              ? 1
                 : isIn(COMBINING, character.code) ? 0
                 : isIn(WIDE, character.code)      ? 2
                                                   : 1;
        text.remove_prefix(character.bytes);
    }
    return width;
}

std::string printable(std::string_view text, bool keepLines) {
    std::string shown;
    while (!text.empty()) {
        const Character character = decode(text);
        // 0x80 to 0x9F are control characters too, in UTF-8 and, to some terminals, as single bytes.
        // And those that turn the direction of writing would garble the rest of the line.
        const bool isControl = character.code < 0x20 || (character.code >= 0x7F && character.code <= 0x9F) ||
                               (character.code >= 0x202A && character.code <= 0x202E) ||
                               (character.code >= 0x2066 && character.code <= 0x2069);
        if (isControl && !(keepLines && character.code == '\n')) {
            shown += character.code == '\t' ? " " : "?";
        } else {
            shown.append(text.substr(0, character.bytes));
        }
        text.remove_prefix(character.bytes);
    }
    return shown;
}

}  // namespace halvern::morvane::client
