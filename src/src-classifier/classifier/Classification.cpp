#include "classifier/Classification.h"

#include <stdexcept>

#include "debug/Assertion.h"

namespace halvern::classifier {

double Classification::Probabilities::at(std::string_view className) const {
    const std::size_t index = _names != nullptr ? _names->find(className) : ClassNames::NOT_FOUND;
    if (index == ClassNames::NOT_FOUND) {
        throw std::out_of_range("There is no probability for this class name.");
    }
    return _values[index];
}

void Classification::setProbability(std::string_view className, double probability) {
    auto& [names, values] = _probabilities;
    const std::size_t index = names != nullptr ? names->find(className) : ClassNames::NOT_FOUND;
    if (index != ClassNames::NOT_FOUND) {
        values[index] = probability;
        return;
    }
    // Others may share the names.
    auto extended = names != nullptr ? std::make_shared<ClassNames>(*names) : std::make_shared<ClassNames>();
    extended->add(className);
    values.push_back(probability);
    names = std::move(extended);
}

void Classification::setProbabilities(std::shared_ptr<const ClassNames> names, std::vector<double> values) {
    CHECK(names->size() == values.size(), "As many probabilities as classes are needed");
    _probabilities._names = std::move(names);
    _probabilities._values = std::move(values);
}

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
