#include "util/Base64.h"

#include <gtest/gtest.h>

#include <string>

using namespace std::string_literals;

namespace {

std::string encoded(const std::string& bytes) {
    std::string out = "before";
    util::Base64EncoderImpl().encode(util::Bytes(bytes.begin(), bytes.end()), out);
    return out;
}

std::string decoded(const std::string& text) {
    util::Bytes out = {'b', 'e', 'f', 'o', 'r', 'e'};
    util::Base64DecoderImpl().decode(text, out);
    return std::string(out.begin(), out.end());
}

}  // namespace

// The vectors of RFC 4648, section 10, the first and last characters of the alphabet, and all that lie
// between.
TEST(Base64Test, KnownTextsBothWays) {
    const struct {
        std::string bytes;
        const char* text;
    } cases[] = {
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {"\0\0"s, "AAA="},
        {"\xFB\xEF\xFF", "++//"},
        {"\x00\x10\x83\x10\x51\x87\x20\x92\x8B\x30\xD3\x8F\x41\x14\x93\x51\x55\x97\x61\x96\x9B\x71\xD7\x9F"
         "\x82\x18\xA3\x92\x59\xA7\xA2\x9A\xAB\xB2\xDB\xAF\xC3\x1C\xB3\xD3\x5D\xB7\xE3\x9E\xBB\xF3\xDF\xBF"s,
         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(encoded(row.bytes), row.text);
        EXPECT_EQ(decoded(row.text), row.bytes);
    }
    EXPECT_EQ(encoded(""), "before") << "Nothing leaves the target as it was";
    EXPECT_EQ(decoded(""), "before");
}

TEST(Base64Test, DecodingTakesWhatItCan) {
    const struct {
        std::string text;
        std::string bytes;
    } cases[] = {
        {"aGVq====", "hej"},
        {"a G V q", "hej"},
        {"\r\naGVq\n\xFF-_aGVq", "hejhej"},
        {"Zg", "f"},
        {"Zm8", "fo"},
        {"Zm9vY", "foo"},
        {"====", ""},
        {"Z", ""},
        {"Zg==Zg==", "f\x06\x60"},  // padding doesn't end a group
        {"aGVq\0aGVq"s, "hej"},     // a zero between groups ends the text
        {"aG\0Vq"s, "hej"},         // one within a group is skipped
        {"aGVq =\0aGVq"s, "hejhej"},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(decoded(row.text), row.bytes) << row.text;
    }
}
