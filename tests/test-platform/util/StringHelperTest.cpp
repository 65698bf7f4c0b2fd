#include "util/StringHelper.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "support/FailureOf.h"
#include "util/EscapeXml.h"

using namespace std::string_literals;
using util::StringHelper;

TEST(StringHelperTest, OnlyAsciiMarkupIsEscapedAndOnlyAsciiLettersAreFolded) {
    EXPECT_EQ(util::escapeXml("a\0<&amp;>\"x\" 'y'\xC3\xA9\x80\n"s),
              "a\0&lt;&amp;amp;&gt;&quot;x&quot; 'y'\xC3\xA9\x80\n"s);
    EXPECT_EQ(StringHelper::toLower("@AZ[`az{ \xC4\xD6\xE5"), "@az[`az{ \xC4\xD6\xE5");
}

TEST(StringHelperTest, ReplacementsAreNotSearchedAgain) {
    const struct {
        const char* text;
        const char* search;
        const char* replacement;
        const char* expected;
        std::size_t replacements;
    } cases[] = {
        {"a.b.c", ".", "..", "a..b..c", 2}, {"aaaa", "aa", "a", "aa", 2}, {"aaa", "aa", "b", "ba", 1},
        {"abc", "abc", "", "", 1},          {"ab", "abc", "x", "ab", 0},  {"", "a", "b", "", 0},
        {"xay", "a", "xay", "xxayy", 1},    {"abc", "", "x", "abc", 0},
    };
    for (const auto& row : cases) {
        std::string text = row.text;
        EXPECT_EQ(StringHelper::replaceAll(text, row.search, row.replacement), row.replacements) << row.text;
        EXPECT_EQ(text, row.expected);
    }
}

TEST(StringHelperTest, EveryCharacterUpTo255IsNarrowedToItsByte) {
    EXPECT_EQ(StringHelper::narrow(L"a\x7F\x80\xE9\xFF"), "a\x7F\x80\xE9\xFF");
    EXPECT_EQ(StringHelper::narrow(L"ab\0\x100"s), "ab");
    for (const wchar_t beyond : {L'\x100', L'\x10FFFF', static_cast<wchar_t>(-1)}) {
        EXPECT_EQ(
            support::failureOf<util::StringHelperException>([&] { StringHelper::narrow(L"a"s + beyond); }),
            "Could not get the length of the wide string.");
    }
}

TEST(StringHelperTest, TheDirectoryOfAPathEndsInItsSlash) {
    EXPECT_EQ(StringHelper::directoryOf("\"/opt/my server/morvaneserver\""), "/opt/my server/");
    EXPECT_EQ(StringHelper::directoryOf("/x"), "/");
    EXPECT_EQ(StringHelper::directoryOf("morvaneserver"), "");
}

TEST(StringHelperTest, RandomBytesVaryAndStartAnewInEachThread) {
    std::string first;
    std::string second;
    std::thread([&] { first = StringHelper::randomBytes(1000); }).join();
    std::thread([&] {
        second = StringHelper::randomBytes(500);
        second += StringHelper::randomBytes(500);
    }).join();
    EXPECT_EQ(first.size(), 1000u);
    EXPECT_TRUE(first == second);
    EXPECT_TRUE(first.substr(0, 500) != first.substr(500));
}
