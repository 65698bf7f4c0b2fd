#include "classifier/FeatureExtractor.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "classifier/ClassifierException.h"
#include "classifier/WordScan.h"
#include "util/FixedStream.h"

namespace halvern::classifier {

namespace {

constexpr ByteSet SPACE(" ");
constexpr ByteSet BLANKS(" \t\n\r");
constexpr ByteSet BLANKS_AND_MARKS(" \t\n\r!()./");
constexpr std::size_t PREFIX_SIZE = 6;
constexpr std::size_t GROUP_SIZE = 4;

// Adds "first second" if the first word is short enough to leave the second a place, and the pair says more
// than the words do. A missing first word is an empty one.
void addWordPair(const Token& first, const Token& second, TokenCounts& tokenCounts) {
    constexpr std::size_t SMALLEST = 5;
    constexpr std::size_t WORDS = 7;  // bytes of both words together
    const std::size_t length = first.length();
    if (length == 0 || length >= WORDS) {
        return;
    }
    const std::size_t taken = std::min(second.length(), WORDS - length);
    const std::size_t size = length + 1 + taken;
    if (size < SMALLEST) {
        return;
    }
    const std::uint64_t tail = second.head(taken) << 8 | static_cast<unsigned char>(' ');
    tokenCounts.add(Token::fromWord(first.head(length) | tail << (8 * length), size));
}

template <class Delimiters>
void addWords(std::string_view text, ReadableText::Case wish, const Delimiters& delimiters,
              std::size_t maxTokenSize, TokenCounts& tokenCounts) {
    const ReadableText readable(text, wish);
    tokenCounts.expectText(text.size() / 2);
    forEachWord(readable, delimiters, [&](std::string_view word) {
        tokenCounts.add(Token::fromReadable(word.data(), std::min(word.size(), maxTokenSize)));
    });
}

// The order of the tokens is part of the result: keywords and the last digits of probabilities depend on it.
template <class Delimiters>
void addWordsPrefixesAndPairs(std::string_view text, const Delimiters& delimiters, std::size_t maxTokenSize,
                              TokenCounts& tokenCounts) {
    const ReadableText readable(text, ReadableText::Case::FOLDED);
    tokenCounts.expectText(text.size());
    Token previous;
    forEachWord(readable, delimiters, [&](std::string_view run) {
        const Token word = Token::fromReadable(run.data(), std::min(run.size(), maxTokenSize));
        tokenCounts.add(word);
        addWordPair(previous, word, tokenCounts);
        if (word.length() > PREFIX_SIZE) {
            tokenCounts.add(Token::fromWord(word.head(PREFIX_SIZE), PREFIX_SIZE));
        }
        previous = word;
    });
}

bool isCharacterOfGroups(char byte) {
    const char folded = foldCase(byte);
    return static_cast<unsigned char>(byte) > 127 || (folded >= 'a' && folded <= 'z') || byte == '\'';
}

}  // namespace

std::unique_ptr<FeatureExtractor> makeFeatureExtractor(std::uint32_t version) {
    switch (version) {
        case 3:
            return std::make_unique<FeatureExtractorV3>();
        case 4:
            return std::make_unique<FeatureExtractorV4>();
        case 5:
            return std::make_unique<FeatureExtractorV5>();
        case 6:
            return std::make_unique<FeatureExtractorV6>();
        case 7:
            return std::make_unique<FeatureExtractorV7>();
        default:
            break;
    }
    util::FixedStream<128> text;
    text << "Unrecognized data version for feature extractor " << version;
    throw ClassifierException(text.str());
}

void FeatureExtractorV3::extract(std::string_view text, TokenCounts& tokenCounts) const {
    addWords(text, ReadableText::Case::KEPT, SPACE, getMaxTokenSize(), tokenCounts);
}

void FeatureExtractorV4::extract(std::string_view text, TokenCounts& tokenCounts) const {
    addWordsPrefixesAndPairs(text, BLANKS, getMaxTokenSize(), tokenCounts);
}

void FeatureExtractorV5::extract(std::string_view text, TokenCounts& tokenCounts) const {
    addWordsPrefixesAndPairs(text, BLANKS_AND_MARKS, getMaxTokenSize(), tokenCounts);
}

void FeatureExtractorV6::extract(std::string_view text, TokenCounts& tokenCounts) const {
    addWords(text, ReadableText::Case::FOLDED, BLANKS_AND_MARKS, getMaxTokenSize(), tokenCounts);
}

void FeatureExtractorV7::extract(std::string_view text, TokenCounts& tokenCounts) const {
    std::string normalised;
    normalised.reserve(text.size());
    bool inGap = false;
    for (const char byte : text) {
        const bool isCharacter = isCharacterOfGroups(byte);
        if (isCharacter) {
            normalised += foldCase(byte);
        } else if (!inGap) {
            normalised += ' ';
        }
        inGap = !isCharacter;
    }
    // The group that ends at the last byte was never made, and what classifiers have learned fits that.
    for (std::size_t start = 0; start + GROUP_SIZE < normalised.size(); ++start) {
        std::uint32_t group = 0;
        std::memcpy(&group, normalised.data() + start, GROUP_SIZE);
        tokenCounts.add(Token::fromWord(group, GROUP_SIZE));
    }
}

}  // namespace halvern::classifier
