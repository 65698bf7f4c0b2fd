#pragma once

#include <cstdint>
#include <string_view>

#include "classifier/FeatureExtractor.h"

namespace halvern::classifier {

// Cuts a text into the words that a person would take for keywords, whatever the classifier's own extractor
// makes.
//
// A word with a byte that has a meaning in XML, or that XML forbids, is left out whole.
class KeywordExtractor final : public FeatureExtractor {
public:
    // Requires a maximum above 0. lowerCase folds the letters A to Z first.
    KeywordExtractor(std::uint64_t maxTokenSize, bool lowerCase);

    void extract(std::string_view text, TokenCounts& tokenCounts) const override;
    std::uint64_t getMaxTokenSize() const override { return _maxTokenSize; }

private:
    std::uint64_t _maxTokenSize;
    bool _lowerCase;
};

}  // namespace halvern::classifier
