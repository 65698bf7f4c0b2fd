#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "classifier/TokenCounts.h"
#include "classifier/storage/LaneBase.h"

namespace halvern::classifier {

// The tokens of one text in groups of equal length, as lanes take them. Good as long as the counts.
class TokensByLength {
public:
    explicit TokensByLength(const TokenCounts& tokenCounts);
    TokensByLength(const TokensByLength&) = delete;
    TokensByLength& operator=(const TokensByLength&) = delete;

    // Without empty ones.
    std::span<const storage::FeatureCounts> groups() const { return _groups; }

private:
    std::vector<const char*> _tokens;
    std::vector<std::uint32_t> _counts;
    std::vector<storage::FeatureCounts> _groups;
};

}  // namespace halvern::classifier
