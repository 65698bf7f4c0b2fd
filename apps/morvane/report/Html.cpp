#include "report/Html.h"

#include <algorithm>
#include <cstdio>

#include "util/Utf8.h"

namespace halvern::morvane::client {

std::string escapeHtml(std::string_view text) {
    constexpr std::string_view REPLACEMENT = "\xef\xbf\xbd";
    std::string out;
    out.reserve(text.size() + text.size() / 8);
    while (!text.empty()) {
        const auto [character, length] = util::firstUtf8Character(text);
        const bool isControl = (character < 0x20 && character != '\n' && character != '\t') ||
                               (character >= 0x7F && character < 0xA0);
        const std::string_view bytes = text.substr(0, std::max<std::size_t>(length, 1));
        text.remove_prefix(bytes.size());
        if (length == 0 || isControl) {
            out += REPLACEMENT;
            continue;
        }
        switch (character) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                out += bytes;
        }
    }
    return out;
}

std::string shorten(const std::string& text, std::size_t bytes) {
    if (text.size() <= bytes) {
        return text;
    }
    std::size_t end = bytes;
    while (end > 0 && bytes - end < 4 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
        --end;
    }
    return text.substr(0, end) + "\xe2\x80\xa6";
}

std::string fixed(double number, int decimals) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.*f", decimals, number);
    return text;
}

std::string percent(double part) {
    const std::string text = fixed(part * 100, 1);
    if (part < 1 && text == "100.0") {
        return "> 99.9 %";
    }
    return part > 0 && text == "0.0" ? "< 0.1 %" : text + " %";
}

}  // namespace halvern::morvane::client
