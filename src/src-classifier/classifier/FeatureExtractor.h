#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "classifier/TokenCounts.h"

namespace halvern::classifier {

// Turns a text into features: strings of bytes by which classes are told apart.
//
// A text is bytes and nothing is decoded, so a character of several bytes may be cut in two. Extractors never
// change; any number of threads may share one.
class FeatureExtractor {
public:
    virtual ~FeatureExtractor() = default;

    // Adds every feature of the text to the counts.
    virtual void extract(std::string_view text, TokenCounts& tokenCounts) const = 0;

    // The number of bytes after which a word is cut; the rest of it is dropped.
    virtual std::uint64_t getMaxTokenSize() const = 0;
};

// Makes the extractor of a generation, 3 to 7. A classifier keeps its generation for life, because what it
// learned is worth nothing under another one. Throws ClassifierException for any other number.
std::unique_ptr<FeatureExtractor> makeFeatureExtractor(std::uint32_t version);

// What all generations share.
class GenerationExtractor : public FeatureExtractor {
public:
    std::uint64_t getMaxTokenSize() const override { return _maxTokenSize; }

private:
    // The feature of n bytes lives in lane n of 32, which leaves room for one byte more.
    std::uint64_t _maxTokenSize = 30;
};

// Words between spaces, as they stand.
class FeatureExtractorV3 final : public GenerationExtractor {
public:
    void extract(std::string_view text, TokenCounts& tokenCounts) const override;
};

// Words between blanks and line ends in lower case, the first six bytes of longer words, and word pairs: a
// short word, a space and the head of the next word, 5 to 8 bytes in all.
class FeatureExtractorV4 final : public GenerationExtractor {
public:
    void extract(std::string_view text, TokenCounts& tokenCounts) const override;
};

// Like V4, but ! ( ) . and / end a word too. The generation of new classifiers.
class FeatureExtractorV5 final : public GenerationExtractor {
public:
    void extract(std::string_view text, TokenCounts& tokenCounts) const override;
};

// The words of V5 alone.
class FeatureExtractorV6 final : public GenerationExtractor {
public:
    void extract(std::string_view text, TokenCounts& tokenCounts) const override;
};

// Groups of four neighbouring characters, in lower case, with one space for each run of what isn't a letter,
// an apostrophe or a byte above 127.
class FeatureExtractorV7 final : public GenerationExtractor {
public:
    void extract(std::string_view text, TokenCounts& tokenCounts) const override;
};

}  // namespace halvern::classifier
