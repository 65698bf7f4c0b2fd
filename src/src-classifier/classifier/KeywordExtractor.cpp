#include "classifier/KeywordExtractor.h"

#include <algorithm>

#include "classifier/WordScan.h"
#include "debug/Assertion.h"

namespace halvern::classifier {

namespace {

constexpr ByteSet DELIMITERS(" \n\r\t,.!?:;\"");
constexpr ByteSet XML_MARKUP("&'<>");

bool isUnfitForXml(char byte) { return static_cast<unsigned char>(byte) < 0x20 || XML_MARKUP.contains(byte); }

}  // namespace

KeywordExtractor::KeywordExtractor(std::uint64_t maxTokenSize, bool lowerCase)
    : _maxTokenSize(maxTokenSize), _lowerCase(lowerCase) {
    CHECK(_maxTokenSize > 0, "Setting the maxTokenSize to 0 makes no sense.");
}

void KeywordExtractor::extract(std::string_view text, TokenCounts& tokenCounts) const {
    const ReadableText readable(text, _lowerCase ? ReadableText::Case::FOLDED : ReadableText::Case::KEPT);
    forEachWord(readable, DELIMITERS, [&](std::string_view word) {
        if (std::none_of(word.begin(), word.end(), isUnfitForXml)) {
            tokenCounts.add(word.substr(0, _maxTokenSize));
        }
    });
}

}  // namespace halvern::classifier
