#include "util/StringHelper.h"

#include <gtest/gtest.h>

#include <string>

#include "support/Failure.h"
#include "util/EscapeXml.h"

using namespace std::string_literals;
using util::StringHelper;

TEST(StringHelperTest, KnownTexts) {
    EXPECT_EQ(util::escapeXml("a\0<&amp;>\"x\" 'y'\xC3\xA9\x80\n"s),
              "a\0&lt;&amp;amp;&gt;&quot;x&quot; 'y'\xC3\xA9\x80\n"s);
    EXPECT_EQ(StringHelper::toLower("@AZ[`az{ \xC4\xD6\xE5"), "@az[`az{ \xC4\xD6\xE5");
    EXPECT_EQ(StringHelper::narrow(L"ab\x7F\x80\xFF\0\x100"s), "ab\x7F\x80\xFF");
    EXPECT_EQ(support::failureOf<util::StringHelperException>([] { StringHelper::narrow(L"a\x100"); }),
              "Could not get the length of the wide string.");
    EXPECT_EQ(StringHelper::directoryOf("\"/opt/my server/morvaneserver\""), "/opt/my server/");
    EXPECT_EQ(StringHelper::directoryOf("/x"), "/");
    EXPECT_EQ(StringHelper::directoryOf("morvaneserver"), "");
}

TEST(StringHelperTest, ReplacementsAreNotSearchedAgain) {
    std::string text = "a.b.c";
    EXPECT_EQ(StringHelper::replaceAll(text, ".", ".."), 2u);
    EXPECT_EQ(StringHelper::replaceAll(text, "", "x"), 0u);
    EXPECT_EQ(text, "a..b..c");
    text = "aaa";
    EXPECT_EQ(StringHelper::replaceAll(text, "aa", "b"), 1u);
    EXPECT_EQ(text, "ba");
}
