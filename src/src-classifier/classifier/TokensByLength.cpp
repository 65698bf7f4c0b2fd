#include "classifier/TokensByLength.h"

#include <array>
#include <numeric>

namespace halvern::classifier {

TokensByLength::TokensByLength(const TokenCounts& tokenCounts)
    : _tokens(tokenCounts.size()), _counts(tokenCounts.size()) {
    std::array<std::size_t, Token::MAX_LENGTH + 2> ends{};
    for (const auto& entry : tokenCounts) {
        ++ends[entry.token.size() + 1];
    }
    // Where the next token of each length goes; in the end, where those of its length end.
    std::partial_sum(ends.begin(), ends.end(), ends.begin());
    for (const auto& entry : tokenCounts) {
        const std::size_t place = ends[entry.token.size()]++;
        _tokens[place] = entry.token.data();
        _counts[place] = entry.count;
    }
    for (std::size_t length = 0, begin = 0; begin < _tokens.size(); begin = ends[length++]) {
        if (ends[length] != begin) {
            _groups.push_back({length, _tokens.data() + begin, _counts.data() + begin, ends[length] - begin});
        }
    }
}

}  // namespace halvern::classifier
