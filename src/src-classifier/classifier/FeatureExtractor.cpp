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
void addWordPair(std::string_view first, std::string_view second, TokenCounts& tokenCounts) {
    constexpr std::size_t SMALLEST = 5;
    constexpr std::size_t WORDS = 7;  // bytes of both words together
    if (first.empty() || first.size() >= WORDS) {
        return;
    }
    const std::size_t taken = std::min(second.size(), WORDS - first.size());
    const std::size_t size = first.size() + 1 + taken;
    if (size < SMALLEST) {
        return;
    }
    char pair[WORDS + 1];
    std::memcpy(pair, first.data(), first.size());
    pair[first.size()] = ' ';
    std::memcpy(pair + first.size() + 1, second.data(), taken);
    tokenCounts.add(std::string_view(pair, size));
}

void addWords(std::string_view text, const ByteSet& delimiters, std::size_t maxTokenSize,
              TokenCounts& tokenCounts) {
    forEachWord(text, delimiters,
                [&](std::string_view word) { tokenCounts.add(word.substr(0, maxTokenSize)); });
}

// The order of the tokens is part of the result: keywords and the last digits of probabilities depend on it.
void addWordsPrefixesAndPairs(std::string_view text, const ByteSet& delimiters, std::size_t maxTokenSize,
                              TokenCounts& tokenCounts) {
    std::string_view previous;
    forEachWord(text, delimiters, [&](std::string_view run) {
        const std::string_view word = run.substr(0, maxTokenSize);
        tokenCounts.add(word);
        addWordPair(previous, word, tokenCounts);
        if (word.size() > PREFIX_SIZE) {
            tokenCounts.add(word.substr(0, PREFIX_SIZE));
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
    addWords(text, SPACE, getMaxTokenSize(), tokenCounts);
}

void FeatureExtractorV4::extract(std::string_view text, TokenCounts& tokenCounts) const {
    addWordsPrefixesAndPairs(foldCase(text), BLANKS, getMaxTokenSize(), tokenCounts);
}

void FeatureExtractorV5::extract(std::string_view text, TokenCounts& tokenCounts) const {
    addWordsPrefixesAndPairs(foldCase(text), BLANKS_AND_MARKS, getMaxTokenSize(), tokenCounts);
}

void FeatureExtractorV6::extract(std::string_view text, TokenCounts& tokenCounts) const {
    addWords(foldCase(text), BLANKS_AND_MARKS, getMaxTokenSize(), tokenCounts);
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
        tokenCounts.add(std::string_view(normalised).substr(start, GROUP_SIZE));
    }
}

}  // namespace halvern::classifier
