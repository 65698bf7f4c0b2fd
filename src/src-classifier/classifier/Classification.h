#pragma once

#include <boost/heap/priority_queue.hpp>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "classifier/ClassNames.h"

namespace halvern::classifier {

// The answer to "which class is this text of?": a probability for each class, and how much of the text was
// known.
class Classification {
public:
    // An ordered map from the class name to the probability, in the order of the names' unsigned bytes.
    class Probabilities {
    public:
        class Iterator {
        public:
            using iterator_category = std::input_iterator_tag;
            using value_type = std::pair<const std::string&, double>;
            using difference_type = std::ptrdiff_t;
            using pointer = void;
            using reference = value_type;

            Iterator(const Probabilities& map, std::size_t next) : _map(&map), _next(next) {}
            value_type operator*() const {
                const std::size_t index = _map->_names->inOrder(_next);
                return {(*_map->_names)[index], _map->_values[index]};
            }
            Iterator& operator++() {
                ++_next;
                return *this;
            }
            bool operator==(const Iterator& other) const { return _next == other._next; }

        private:
            const Probabilities* _map;
            std::size_t _next;
        };

        std::size_t size() const { return _values.size(); }
        bool empty() const { return _values.empty(); }
        Iterator begin() const { return {*this, 0}; }
        Iterator end() const { return {*this, size()}; }
        // Throws std::out_of_range for an unknown name.
        double at(std::string_view className) const;

        // Null while there is no entry. Answers with the same names may share one, which never changes.
        const std::shared_ptr<const ClassNames>& names() const { return _names; }
        // Of the name with this index.
        double operator[](std::size_t index) const { return _values[index]; }

    private:
        friend class Classification;

        std::shared_ptr<const ClassNames> _names;
        std::vector<double> _values;  // as many as there are names, in the order of their indexes
    };

    explicit Classification(double textCoverage = -1.0) : _textCoverage(textCoverage) {}

    // The share of the text's distinct tokens that the classifier knows, 0 to 1; what the constructor was
    // given until a classifier has filled the record.
    double getTextCoverage() const { return _textCoverage; }
    void setTextCoverage(double textCoverage) { _textCoverage = textCoverage; }

    const Probabilities& getProbabilities() const { return _probabilities; }

    // Replaces what stands under that name.
    void setProbability(std::string_view className, double probability);
    // Replaces all probabilities. Requires one for each name, in the order of the names' indexes.
    void setProbabilities(std::shared_ptr<const ClassNames> names, std::vector<double> values);

private:
    double _textCoverage;
    Probabilities _probabilities;
};

// One word of a text and the class for which it speaks most.
//
// A keyword owns nothing: both pointers lead into the classifier and are valid only while that is unchanged.
struct Keyword {
    // Requires a token that isn't null.
    Keyword(const char* token, std::uint64_t length, double probability, std::uint32_t count,
            const char* className);

    const char* token;  // the bytes inside the lane, not terminated
    std::uint64_t length;
    double probability;   // the share of the token's values that the class has
    std::uint32_t count;  // how often the token occurs in the text
    const char* className;
};

// The strongest keywords of a text, up to a limit.
class Keywords {
    struct WeakestOnTop {
        bool operator()(const Keyword& a, const Keyword& b) const { return a.probability > b.probability; }
    };
    using Queue = boost::heap::priority_queue<Keyword, boost::heap::compare<WeakestOnTop>>;

public:
    using const_iterator = Queue::const_iterator;

    // A limit of 0 asks for no keywords at all. A token's share must be greater than minProbability.
    Keywords(std::uint64_t limit, double minProbability) : _limit(limit), _minProbability(minProbability) {}

    std::uint64_t limit() const { return _limit; }
    double minProbability() const { return _minProbability; }
    std::uint64_t size() const { return _queue.size(); }

    // The keywords in the storage order of the heap, which isn't sorted. Clients see this order.
    const_iterator begin() const { return _queue.begin(); }
    const_iterator end() const { return _queue.end(); }

    // Keeps the keyword while there is room; at the limit it takes the weakest one's place, if it is
    // stronger. Requires a limit above 0.
    void offer(const Keyword& keyword);

private:
    Queue _queue;
    std::uint64_t _limit;
    double _minProbability;
};

// What a classifier tells about one of its classes.
struct ClassInformation {
    std::string name;
    std::uint64_t uniqueFeatures;  // distinct features that the class holds
    std::uint32_t totalCount;      // occurrences trained into the class
};

}  // namespace halvern::classifier
