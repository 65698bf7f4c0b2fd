#include "server/ResponseText.h"

#include <gtest/gtest.h>
#include <libxml/chvalid.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlstring.h>

#include <random>
#include <string>
#include <string_view>

namespace halvern::morvane {
namespace {

using namespace std::string_view_literals;

struct Row {
    std::string_view bytes;
    std::string_view expected;
};

TEST(ResponseTextTest, WritesEveryKindOfByteTheWayAClientCanRead) {
    const Row rows[] = {
        {"", ""},
        {"a<b>&\"'", "a&lt;b&gt;&amp;&quot;'"},
        {"&amp;", "&amp;amp;"},
        {"\t\n\r\x7F", "\t\n\r\x7F"},
        // Characters that XML forbids, whether one byte or three.
        {"a\0b\x01\x1F"sv,
         "a\xEF\xBF\xBD"
         "b\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"\xEF\xBF\xBD|\xEF\xBF\xBE|\xEF\xBF\xBF", "\xEF\xBF\xBD|\xEF\xBF\xBD|\xEF\xBF\xBD"},
        // Both ends of each length.
        {"\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBC\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
         "\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBC\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
        {"\xF0\x9F\xBF\xBE", "\xF0\x9F\xBF\xBE"},
        {"\xED\x9F\xBF\xEE\x80\x80", "\xED\x9F\xBF\xEE\x80\x80"},
        // Latin-1 text, and sequences cut off by the end or by what follows.
        {"sm\xE5", "sm\xC3\xA5"},
        {"\xE5r", "\xC3\xA5r"},
        {"\xC3", "\xC3\x83"},
        {"\xE2\x82", "\xC3\xA2\xC2\x82"},
        {"\xF0\x9F\x98", "\xC3\xB0\xC2\x9F\xC2\x98"},
        {"\xE2\x82<", "\xC3\xA2\xC2\x82&lt;"},
        {"\xC3\xC3\xA5", "\xC3\x83\xC3\xA5"},
        {"\x80\xBF", "\xC2\x80\xC2\xBF"},
        // Overlong forms, a surrogate, a number past the last character, leads that never occur.
        {"\xC0\xAF", "\xC3\x80\xC2\xAF"},
        {"\xE0\x9F\xBF", "\xC3\xA0\xC2\x9F\xC2\xBF"},
        {"\xF0\x8F\xBF\xBF", "\xC3\xB0\xC2\x8F\xC2\xBF\xC2\xBF"},
        {"\xED\xA0\x80", "\xC3\xAD\xC2\xA0\xC2\x80"},
        {"\xF4\x90\x80\x80", "\xC3\xB4\xC2\x90\xC2\x80\xC2\x80"},
        {"\xF5\xFE\xFF", "\xC3\xB5\xC3\xBE\xC3\xBF"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(responseText(row.bytes), row.expected) << testing::PrintToString(row.bytes);
    }
}

TEST(ResponseTextTest, MakesAWellFormedDocumentOfAnyBytes) {
    std::mt19937 random(7);
    const std::string_view favourites = "\xC2\xC3\xDF\xE0\xE2\xED\xEF\xF0\xF4\x80\x9F\xA0\xBF\xBE<&\"\0a"sv;
    for (int round = 0; round < 20'000; ++round) {
        std::string bytes;
        for (std::size_t left = 1 + random() % 6; left > 0; --left) {
            bytes +=
                random() % 3 == 0 ? static_cast<char>(random()) : favourites[random() % favourites.size()];
        }
        const std::string text = responseText(bytes);
        const std::string document =
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a b=\"" + text + "\">" + text + "</a>";
        const xmlDocPtr parsed = xmlReadMemory(document.data(), static_cast<int>(document.size()), nullptr,
                                               nullptr, XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
        ASSERT_NE(parsed, nullptr) << testing::PrintToString(bytes);
        xmlFreeDoc(parsed);
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
