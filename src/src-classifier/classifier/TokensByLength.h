#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <span>
#include <vector>

#include "classifier/TokenCounts.h"
#include "classifier/storage/LaneBase.h"

namespace halvern::classifier {

// Sorts so many tokens from next on by their lengths, and moves next behind them. Both arrays need room for
// them. Calls visit(length, place of its first, number) for each length that there is.
template <class Visit>
void sortByLength(TokenCounts::Iterator& next, std::size_t size, const char** tokens, std::uint32_t* counts,
                  const Visit& visit) {
    std::array<std::size_t, Token::MAX_LENGTH + 2> ends{};
    auto again = next;
    for (std::size_t i = 0; i < size; ++i, ++again) {
        ++ends[(*again).token.size() + 1];
    }
    // Where the next token of each length goes; in the end, where those of its length end.
    std::partial_sum(ends.begin(), ends.end(), ends.begin());
    for (std::size_t i = 0; i < size; ++i, ++next) {
        const TokenCounts::Entry entry = *next;
        const std::size_t place = ends[entry.token.size()]++;
        tokens[place] = entry.token.data();
        counts[place] = entry.count;
    }
    for (std::size_t length = 0, begin = 0; begin < size; begin = ends[length++]) {
        if (ends[length] != begin) {
            visit(length, begin, ends[length] - begin);
        }
    }
}

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
