#include "classifier/TokensByLength.h"

namespace halvern::classifier {

TokensByLength::TokensByLength(const TokenCounts& tokenCounts)
    : _tokens(tokenCounts.size()), _counts(tokenCounts.size()) {
    auto next = tokenCounts.begin();
    sortByLength(next, tokenCounts.size(), _tokens.data(), _counts.data(),
                 [this](std::size_t length, std::size_t begin, std::size_t size) {
                     _groups.push_back({length, _tokens.data() + begin, _counts.data() + begin, size});
                 });
}

}  // namespace halvern::classifier
