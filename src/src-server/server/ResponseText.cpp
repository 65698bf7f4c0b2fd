#include "server/ResponseText.h"

#include <cstddef>
#include <cstdint>

#include "util/EscapeXml.h"

namespace halvern::morvane {
namespace {

constexpr std::string_view REPLACEMENT = "\xEF\xBF\xBD";  // U+FFFD

struct Decoded {
    std::uint32_t character;
    std::size_t length;  // 0: no valid sequence starts here
};

// Decodes one sequence of two to four bytes, by the table of well-formed sequences in RFC 3629, section 4:
// overlong forms, surrogates and numbers above U+10FFFF are no sequences.
Decoded decode(std::string_view bytes) {
    const auto lead = static_cast<unsigned char>(bytes.front());
    std::size_t length = 0;
    std::uint32_t least = 0;
    std::uint32_t character = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        least = 0x80;
        character = lead & 0x1FU;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        least = 0x800;
        character = lead & 0x0FU;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        least = 0x10000;
        character = lead & 0x07U;
    }
    if (length == 0 || length > bytes.size()) {
        return {0, 0};
    }
    for (std::size_t i = 1; i < length; ++i) {
        const auto follower = static_cast<unsigned char>(bytes[i]);
        if ((follower & 0xC0U) != 0x80U) {
            return {0, 0};
        }
        character = character << 6U | (follower & 0x3FU);
    }
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    if (character < least || character > 0x10FFFF || surrogate) {
        return {0, 0};
    }
    return {character, length};
}

// Of the characters below U+0080, XML allows all but most control characters.
bool isAllowedAscii(unsigned char byte) {
    return byte >= 0x20 || byte == '\t' || byte == '\n' || byte == '\r';
}

void appendLatin1(std::string& out, unsigned char byte) {
    out += static_cast<char>(0xC0U | (byte >> 6U));
    out += static_cast<char>(0x80U | (byte & 0x3FU));
}

}  // namespace

std::string responseText(std::string_view text) {
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
        } else if (const Decoded decoded = decode(bytes); decoded.length == 0) {
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
