#include "classifier/FeatureExtractor.h"

#include <gtest/gtest.h>

#include <string>

#include "classifier/KeywordExtractor.h"

namespace halvern::classifier {

namespace {

constexpr std::uint32_t KEYWORDS = 99;

// "word*2|other": tokens in the order of their first occurrence, with the number of those that come back.
std::string extracted(std::uint32_t version, const std::string& text) {
    TokenCounts tokenCounts;
    if (version == KEYWORDS) {
        KeywordExtractor(30, true).extract(text, tokenCounts);
    } else {
        makeFeatureExtractor(version)->extract(text, tokenCounts);
    }
    std::string result;
    for (const auto& [token, count] : tokenCounts) {
        result.append(result.empty() ? "" : "|").append(token);
        result += count > 1 ? "*" + std::to_string(count) : "";
    }
    return result;
}

}  // namespace

TEST(FeatureExtractorTest, KnownTexts) {
    const std::string forty(40, 'w');
    const std::string thirty(30, 'w');
    const struct {
        std::uint32_t version;
        std::string text;
        std::string tokens;
    } cases[] = {
        // Words alone.
        {3, "Word word  ", "Word|word"},
        {3, forty + " x", thirty + "|x"},
        {6, "Of classes. OF", "of*2|classes"},
        // Words, pairs of 5 to 8 bytes, and the first 6 bytes of longer words.
        {5, "Word word", "word*2|word wor"},
        {5, "of classes", "of|classes|of class|classe"},
        {5, "a bee", "a|bee|a bee"},
        {5, "a be", "a|be"},
        {5, "a extraordinary", "a|extraordinary|a extrao|extrao"},
        {5, "sevenxx on", "sevenxx|sevenx|on"},
        {5, forty + " x", thirty + "|wwwwww|x"},
        {5, "so \n (on) so on", "so*2|on*2|so on*2|on so"},
        {5, "sevenxx. sevenxx", "sevenxx*2|sevenx*2"},
        {5, "done. next/step", "done|next|done nex|step|next ste"},
        {4, "Done. Next/step", "done.|next/step|done. ne|next/s"},
        {5, "so,it:is;a-b? \"q\"", "so,it:is;a-b?|so,it:|\"q\""},
        {5, std::string("a\0b c", 5), std::string("a\0b|c|a\0b c", 11)},
        // Groups of four characters, but for the last.
        {7, "Ab-12 cd", "ab c"},
        {7, "aaaaaaa", "aaaa*3"},
        {7, "abcd", ""},
        // Keywords: whole words that XML can show.
        {KEYWORDS, "rock&roll it's rock-roll", "rock-roll"},
        {KEYWORDS, "One,two;ONE.\"(three)\"", "one*2|two|(three)"},
        {KEYWORDS, "<b>bold</b> x\x01y plain", "plain"},
        {KEYWORDS, forty + "& " + forty, thirty},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(extracted(row.version, row.text), row.tokens) << row.version << " of " << row.text;
    }
}

TEST(FeatureExtractorTest, WordsMayLieAnywhere) {
    for (const std::size_t before : {0, 1, 61, 62, 63, 64, 65, 127, 128}) {
        for (const std::size_t length : {1, 2, 3, 63, 64, 65, 128}) {
            for (const std::size_t behind : {0, 1, 2, 63, 64}) {
                const std::string word(length, 'w');
                const std::string text = std::string(before, '.') + word + std::string(behind, ' ');
                EXPECT_EQ(extracted(6, text), word.substr(0, 30))
                    << before << ", " << length << ", " << behind;
                EXPECT_EQ(extracted(6, text + ".x"), word.substr(0, 30) + "|x")
                    << before << ", " << length << ", " << behind;
            }
        }
    }
}

TEST(FeatureExtractorTest, EveryByteEndsAWordOrIsPartOfIt) {
    const struct {
        std::uint32_t version;
        std::string delimiters;
    } cases[] = {
        {3, " "}, {4, " \t\n\r"}, {5, " \t\n\r!()./"}, {6, " \t\n\r!()./"}, {KEYWORDS, " \n\r\t,.!?:;\""}};
    for (int value = 0; value < 256; ++value) {
        const char byte = static_cast<char>(value);
        const bool isCapital = value >= 'A' && value <= 'Z';
        const std::string folded(1, static_cast<char>(isCapital ? value + 32 : value));
        for (const auto& [version, delimiters] : cases) {
            const bool isUnfit =
                version == KEYWORDS && (value < 32 || std::string("&'<>").find(byte) != std::string::npos);
            std::string expected = version == 3 ? "x" + std::string(1, byte) + "y" : "x" + folded + "y";
            if (delimiters.find(byte) != std::string::npos) {
                expected = "x|y";
            } else if (isUnfit) {
                expected = "";
            }
            EXPECT_EQ(extracted(version, std::string("x") + byte + "y"), expected)
                << version << ", " << value;
        }
        const bool isKept = value > 127 || value == '\'' || isCapital || (value >= 'a' && value <= 'z');
        EXPECT_EQ(extracted(7, std::string("abc") + byte + "d"), "abc" + (isKept ? folded : " ")) << value;
    }
}

}  // namespace halvern::classifier
