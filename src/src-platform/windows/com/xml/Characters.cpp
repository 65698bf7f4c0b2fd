#include "windows/com/xml/Characters.h"

#include <algorithm>

#include "util/StringHelper.h"

namespace windows::com::xml {

std::string widen(std::string_view bytes) {
    bytes = bytes.substr(0, bytes.find('\0'));
    std::string utf8;
    utf8.reserve(bytes.size());
    for (const char byte : bytes) {
        const auto character = static_cast<unsigned char>(byte);
        if (character < 0x80) {
            utf8.push_back(byte);
        } else {
            utf8.push_back(static_cast<char>(0xC0 | character >> 6));
            utf8.push_back(static_cast<char>(0x80 | (character & 0x3F)));
        }
    }
    return utf8;
}

void appendNarrowed(std::string& out, std::string_view utf8) {
    while (!utf8.empty()) {
        // Texts are ASCII for the most part, and can be as long as a request.
        const auto isAscii = [](char byte) { return static_cast<unsigned char>(byte) < 0x80; };
        const auto ascii =
            static_cast<std::size_t>(std::find_if_not(utf8.begin(), utf8.end(), isAscii) - utf8.begin());
        out.append(utf8.substr(0, ascii));
        utf8.remove_prefix(ascii);
        if (utf8.empty()) {
            return;
        }
        // C2 and C3 lead the two-byte forms of U+0080 to U+00FF.
        const auto lead = static_cast<unsigned char>(utf8[0]);
        if ((lead != 0xC2 && lead != 0xC3) || utf8.size() < 2) {
            throw util::StringHelperException("Could not get the length of the wide string.");
        }
        out.push_back(static_cast<char>(lead << 6 | (utf8[1] & 0x3F)));
        utf8.remove_prefix(2);
    }
}

std::string narrow(std::string_view utf8) {
    std::string bytes;
    appendNarrowed(bytes, utf8);
    return bytes;
}

}  // namespace windows::com::xml
