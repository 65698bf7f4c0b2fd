#include "util/Base64.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

using namespace std::string_literals;

TEST(Base64Test, KnownTextsBothWaysAndWhatDecodingMakesOfOthers) {
    const auto decoded = [](const std::string& text) {
        util::Bytes out = {'o', 'l', 'd'};
        util::Base64DecoderImpl().decode(text, out);
        return std::string(out.begin(), out.end());
    };
    // RFC 4648, section 10, and the whole alphabet.
    const std::pair<std::string, const char*> both[] = {
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"\x00\x10\x83\x10\x51\x87\x20\x92\x8B\x30\xD3\x8F\x41\x14\x93\x51\x55\x97\x61\x96\x9B\x71\xD7\x9F"
         "\x82\x18\xA3\x92\x59\xA7\xA2\x9A\xAB\xB2\xDB\xAF\xC3\x1C\xB3\xD3\x5D\xB7\xE3\x9E\xBB\xF3\xDF\xBF"s,
         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"},
    };
    for (const auto& [bytes, text] : both) {
        std::string out = "old";
        util::Base64EncoderImpl().encode(util::Bytes(bytes.begin(), bytes.end()), out);
        EXPECT_EQ(out, text);
        EXPECT_EQ(decoded(text), bytes);
    }
    EXPECT_EQ(decoded(""), "old");
    // Padding ends no group; a zero ends the text between groups and is skipped within one.
    const std::pair<std::string, std::string> others[] = {
        {"aGVq====", "hej"}, {"\r\na GVq\n\xFF-_aGVq", "hejhej"}, {"Zm9vZm8", "foofo"},
        {"Z", ""},           {"Zg==Zg==", "f\x06\x60"},           {"aGVq\0aGVq"s, "hej"},
        {"aG\0Vq"s, "hej"},  {"aGVq =\0aGVq"s, "hejhej"},
    };
    for (const auto& [text, bytes] : others) {
        EXPECT_EQ(decoded(text), bytes) << text;
    }
}
