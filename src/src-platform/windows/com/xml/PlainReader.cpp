#include "windows/com/xml/PlainReader.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <utility>

namespace windows::com::xml {

namespace {

bool isBlank(char byte) { return byte == ' ' || byte == '\n' || byte == '\t' || byte == '\r'; }

// Of the names that are read here; others are for the library.
bool isNameByte(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9');
}

// True if the text is already what the parser makes of it. Looks at every byte, which the compiler makes
// sixteen at a time of.
bool isAsItStands(std::string_view text) {
    std::uint8_t special = 0;
    for (const char character : text) {
        const auto byte = static_cast<std::uint8_t>(character);
        const bool isControl = byte < 0x20 && byte != '\n' && byte != '\t';
        special |= static_cast<std::uint8_t>(isControl | (byte == '&') | (byte == '>'));
    }
    return special == 0;
}

// The character that the name between '&' and ';' stands for, or 0 if it isn't one of the plain form.
char entity(std::string_view name) {
    static constexpr std::pair<std::string_view, char> named[] = {
        {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
    for (const auto& [known, character] : named) {
        if (name == known) {
            return character;
        }
    }
    if (!name.starts_with('#')) {
        return 0;
    }
    const bool isHex = name.starts_with("#x");
    name.remove_prefix(isHex ? 2 : 1);
    std::uint32_t number = 0;
    const auto [end, error] =
        std::from_chars(name.data(), name.data() + name.size(), number, isHex ? 16 : 10);
    const bool isNumber = error == std::errc() && end == name.data() + name.size();
    const bool isAllowed = number >= 0x20 || number == '\t' || number == '\n' || number == '\r';
    return isNumber && isAllowed && number <= 0xFF ? static_cast<char>(number) : '\0';
}

}  // namespace

bool PlainReader::readDeclaration() {
    if (!skip("<?xml")) {
        return true;
    }
    // A reference has no meaning here, so the values are compared as they stand.
    PlainTag::Attribute attribute;
    if (!skipBlanks() || !readSource(attribute) || attribute.name != "version" || attribute.value != "1.0") {
        return false;
    }
    if (skipBlanks() && _at != _end && *_at != '?') {
        // The bytes are taken as they are whatever it says, as long as it says what can be said there.
        static constexpr std::string_view known[] = {"utf-8", "UTF-8", "iso-8859-1", "ISO-8859-1",
                                                     "us-ascii"};
        if (!readSource(attribute) || attribute.name != "encoding" ||
            std::find(std::begin(known), std::end(known), attribute.value) == std::end(known)) {
            return false;
        }
        skipBlanks();
    }
    return skip("?>");
}

bool PlainReader::readTag(PlainTag& tag) {
    skipBlanks();
    if (!skip("<")) {
        return false;
    }
    tag.isEnd = skip("/");
    tag.closesItself = false;
    tag.attributeCount = 0;
    tag.name = readName();
    if (tag.name.empty()) {
        return false;
    }
    for (;;) {
        const bool blank = skipBlanks();
        if (skip(">")) {
            return true;
        }
        if (tag.isEnd) {
            return false;
        }
        if (skip("/>")) {
            tag.closesItself = true;
            return true;
        }
        if (!blank || tag.attributeCount == PlainTag::maxAttributes ||
            !readAttribute(tag.attributes[tag.attributeCount++])) {
            return false;
        }
    }
}

bool PlainReader::readText(std::string_view name, std::string_view& text) {
    if (_at == _end) {
        return false;
    }
    const auto* const tag =
        static_cast<const char*>(std::memchr(_at, '<', static_cast<std::size_t>(_end - _at)));
    if (tag == nullptr) {
        return false;
    }
    text = {_at, static_cast<std::size_t>(tag - _at)};
    _at = tag;
    if (!isAsItStands(text) && !decode(text, text)) {
        return false;
    }
    if (!skip("</") || !skip(name)) {
        return false;
    }
    skipBlanks();
    return skip(">");
}

bool PlainReader::isAtEnd() {
    skipBlanks();
    return _at == _end;
}

bool PlainReader::skip(std::string_view expected) {
    if (static_cast<std::size_t>(_end - _at) < expected.size() ||
        std::memcmp(_at, expected.data(), expected.size()) != 0) {
        return false;
    }
    _at += expected.size();
    return true;
}

// Returns whether there were any.
bool PlainReader::skipBlanks() {
    const char* const start = _at;
    while (_at != _end && isBlank(*_at)) {
        ++_at;
    }
    return _at != start;
}

std::string_view PlainReader::readName() {
    const char* const start = _at;
    while (_at != _end && isNameByte(*_at)) {
        ++_at;
    }
    return {start, static_cast<std::size_t>(_at - start)};
}

bool PlainReader::readAttribute(PlainTag::Attribute& attribute) {
    return readSource(attribute) &&
           (attribute.value.find('&') == std::string_view::npos || decode(attribute.value, attribute.value));
}

bool PlainReader::readSource(PlainTag::Attribute& attribute) {
    attribute.name = readName();
    if (attribute.name.empty() || !skip("=") || _at == _end || (*_at != '"' && *_at != '\'')) {
        return false;
    }
    const char quote = *_at++;
    const char* const start = _at;
    while (_at != _end && *_at != quote) {
        // Line ends and tabs would become blanks.
        if (*_at == '<' || static_cast<std::uint8_t>(*_at) < 0x20) {
            return false;
        }
        ++_at;
    }
    attribute.value = {start, static_cast<std::size_t>(_at - start)};
    if (_at == _end) {
        return false;
    }
    ++_at;
    return true;
}

// Replaces references by their characters and every form of line end by a line feed.
bool PlainReader::decode(std::string_view source, std::string_view& text) {
    std::string decoded;
    decoded.reserve(source.size());
    for (std::size_t i = 0; i < source.size(); ++i) {
        const char byte = source[i];
        if (byte == '&') {
            const std::size_t end = source.find(';', i);
            const char character =
                end == std::string_view::npos ? '\0' : entity(source.substr(i + 1, end - i - 1));
            if (character == 0) {
                return false;
            }
            decoded.push_back(character);
            i = end;
        } else if (byte == '\r') {
            decoded.push_back('\n');
            i += source.substr(i + 1).starts_with('\n') ? 1 : 0;
        } else if ((static_cast<std::uint8_t>(byte) < 0x20 && byte != '\n' && byte != '\t') ||
                   (byte == '>' && source.substr(0, i).ends_with("]]"))) {
            return false;
        } else {
            decoded.push_back(byte);
        }
    }
    _decoded.push_back(std::move(decoded));
    text = _decoded.back();
    return true;
}

}  // namespace windows::com::xml
