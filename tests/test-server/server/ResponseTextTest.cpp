#include "server/ResponseText.h"

#include <gtest/gtest.h>
#include <libxml/chvalid.h>
#include <libxml/parserInternals.h>

#include <string>
#include <string_view>

namespace halvern::morvane {
namespace {

using namespace std::string_view_literals;

TEST(ResponseTextTest, BytesThatAreNoUtf8AreShownAsLatin1) {
    const std::string_view rows[][2] = {
        {"a<b>&\"'&amp;", "a&lt;b&gt;&amp;&quot;'&amp;amp;"},
        {"a\0b\x01\x1F|\t\n\r\x7F"sv,
         "a\xEF\xBF\xBD"
         "b\xEF\xBF\xBD\xEF\xBF\xBD|\t\n\r\x7F"},
        // Latin-1 text, and sequences cut off by the end or by what follows.
        {"\xE5r", "\xC3\xA5r"},
        {"\xE2\x82<", "\xC3\xA2\xC2\x82&lt;"},
        {"\xC3\xC3\xA5", "\xC3\x83\xC3\xA5"},
        // Overlong forms, surrogates, a number past the last character, leads that never occur.
        {"\xC0\xAF", "\xC3\x80\xC2\xAF"},
        {"\xF0\x8F\xBF\xBF", "\xC3\xB0\xC2\x8F\xC2\xBF\xC2\xBF"},
        {"\xED\xA0\x80", "\xC3\xAD\xC2\xA0\xC2\x80"},
        {"\xF4\x90\x80\x80", "\xC3\xB4\xC2\x90\xC2\x80\xC2\x80"},
        {"\xF5\xFE\xFF", "\xC3\xB5\xC3\xBE\xC3\xBF"},
    };
    for (const auto& [bytes, expected] : rows) {
        EXPECT_EQ(responseText(bytes), expected) << testing::PrintToString(bytes);
    }
}

TEST(ResponseTextTest, KeepsEveryCharacterThatXmlAllows) {
    for (int character = 0x80; character <= 0x10FFFF; ++character) {
        if (character >= 0xD800 && character <= 0xDFFF) {
            continue;
        }
        xmlChar bytes[8] = {};
        const int length = xmlCopyChar(0, bytes, character);
        const std::string written(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
        ASSERT_EQ(responseText(written), xmlIsCharQ(character) ? written : "\xEF\xBF\xBD") << character;
    }
}

}  // namespace
}  // namespace halvern::morvane
