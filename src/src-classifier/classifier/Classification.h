#pragma once

#include <boost/heap/priority_queue.hpp>
#include <cstdint>
#include <map>
#include <string>

namespace halvern::classifier {

// The answer to "which class is this text of?": a probability for each class, and how much of the text was
// known.
class Classification {
public:
    explicit Classification(double textCoverage = -1.0) : _textCoverage(textCoverage) {}

    // The share of the text's distinct tokens that the classifier knows, 0 to 1; what the constructor was
    // given until a classifier has filled the record.
    double getTextCoverage() const { return _textCoverage; }
    void setTextCoverage(double textCoverage) { _textCoverage = textCoverage; }

    // One entry for each class, in the order of the names' unsigned bytes.
    const std::map<std::string, double>& getProbabilities() const { return _probabilities; }

    // Replaces what stands under that name.
    void setProbability(const std::string& className, double probability) {
        _probabilities[className] = probability;
    }

private:
    double _textCoverage;
    std::map<std::string, double> _probabilities;
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
