#include "util/Utf8.h"

namespace util {

Utf8Character firstUtf8Character(std::string_view bytes) {
    const auto lead = static_cast<unsigned char>(bytes.front());
    if (lead < 0x80) {
        return {lead, 1};
    }
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

bool isUtf8(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t length = firstUtf8Character(bytes).length;
        if (length == 0) {
            return false;
        }
        bytes.remove_prefix(length);
    }
    return true;
}

}  // namespace util
