#include "server/ResponseText.h"

#include <cstddef>
#include <cstdint>

#include "util/EscapeXml.h"
#include "util/Utf8.h"

namespace halvern::morvane {
namespace {

constexpr std::string_view REPLACEMENT = "\xEF\xBF\xBD";  // U+FFFD

// Of the characters below U+0080, XML allows all but most control characters.
bool isAllowedAscii(unsigned char byte) {
    return byte >= 0x20 || byte == '\t' || byte == '\n' || byte == '\r';
}

// True if nothing in the text needs another form. Looks at every byte, which the compiler makes sixteen at a
// time of; a look that ended at the first one would take them one by one.
bool isPlain(std::string_view text) {
    std::uint8_t special = 0;
    for (const char character : text) {
        // As a signed number, what is not ASCII lies below the control characters.
        const auto byte = static_cast<std::int8_t>(character);
        special |= static_cast<std::uint8_t>((byte < 0x20) | (byte == '&') | (byte == '"') | (byte == '<') |
                                             (byte == '>'));
    }
    return special == 0;
}

void appendLatin1(std::string& out, unsigned char byte) {
    out += static_cast<char>(0xC0U | (byte >> 6U));
    out += static_cast<char>(0x80U | (byte & 0x3FU));
}

}  // namespace

std::string responseText(std::string_view text) {
    if (isPlain(text)) {
        return std::string(text);
    }
    // Markup is ASCII, so escaping first leaves all sequences as they are.
    const std::string escaped = util::escapeXml(text);
    std::string_view bytes = escaped;
    std::string out;
    out.reserve(bytes.size());
    while (!bytes.empty()) {
        const auto byte = static_cast<unsigned char>(bytes.front());
        std::size_t taken = 1;
        if (byte < 0x80) {
            out += isAllowedAscii(byte) ? bytes.substr(0, 1) : REPLACEMENT;
        } else if (const auto decoded = util::firstUtf8Character(bytes); decoded.length == 0) {
            appendLatin1(out, byte);
        } else {
            taken = decoded.length;
            const bool forbidden = decoded.character == 0xFFFE || decoded.character == 0xFFFF;
            out += forbidden ? REPLACEMENT : bytes.substr(0, taken);
        }
        bytes.remove_prefix(taken);
    }
    return out;
}

}  // namespace halvern::morvane
