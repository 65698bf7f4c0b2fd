#include "classifier/Classification.h"

#include "debug/Assertion.h"

namespace halvern::classifier {

Keyword::Keyword(const char* token, std::uint64_t length, double probability, std::uint32_t count,
                 const char* className)
    : token(token), length(length), probability(probability), count(count), className(className) {
    CHECK(token != nullptr, "Constructing a keyword with null ptr");
}

void Keywords::offer(const Keyword& keyword) {
    if (_queue.size() >= _limit) {
        // A newcomer that ties with the weakest loses: of equal words the first of the text stays.
        if (!(keyword.probability > _queue.top().probability)) {
            return;
        }
        _queue.pop();
    }
    _queue.push(keyword);
}

}  // namespace halvern::classifier
