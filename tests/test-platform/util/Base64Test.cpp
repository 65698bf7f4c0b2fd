#include "util/Base64.h"

#include <gtest/gtest.h>

#include <random>
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

// The vectors of RFC 4648, section 10, and the last two characters of the alphabet.
TEST(Base64Test, KnownTextsBothWays) {
    const struct {
        std::string bytes;
        const char* text;
    } cases[] = {
        {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},   {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {"\0\0"s, "AAA="}, {"\xFB\xEF\xFF", "++//"},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(encoded(row.bytes), row.text);
        EXPECT_EQ(decoded(row.text), row.bytes);
    }
}

TEST(Base64Test, NothingLeavesTheTargetAsItWas) {
    EXPECT_EQ(encoded(""), "before");
    EXPECT_EQ(decoded(""), "before");
}

TEST(Base64Test, DecodingTakesWhatItCan) {
    const struct {
        std::string text;
        std::string bytes;
    } cases[] = {
        {"aGVq", "hej"},
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

TEST(Base64Test, WhateverIsEncodedComesBack) {
    std::mt19937 random(20);
    for (std::size_t length = 1; length < 300; ++length) {
        std::string bytes;
        while (bytes.size() < length) {
            bytes += static_cast<char>(random());
        }
        const std::string text = encoded(bytes);
        EXPECT_EQ(text.size(), (length + 2) / 3 * 4);
        EXPECT_EQ(decoded(text), bytes);
    }
}
