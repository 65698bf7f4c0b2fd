#include "classifier/ClassifierImpl.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <string>
#include <utility>

#include "classifier/ClassifierException.h"
#include "classifier/DefaultCallback.h"
#include "classifier/KeywordExtractor.h"
#include "classifier/Scoring.h"
#include "classifier/TokensByLength.h"
#include "classifier/storage/Migration.h"
#include "debug/Assertion.h"
#include "util/FixedStream.h"
#include "util/Pieces.h"
#include "util/database/DatabaseReader.h"

namespace halvern::classifier {

namespace {

constexpr std::uint32_t DATA_VERSION = 5;
constexpr std::uint32_t OLDEST_DATA_VERSION = 3;
constexpr std::uint32_t NEWEST_EXTRACTOR = 5;
constexpr std::uint32_t EXTRACTOR_WITHOUT_FOLDING = 3;

// For classifications that want no keywords. Its limit keeps it empty, so all threads may share it.
Keywords noKeywords(0, 0.0);

[[noreturn]] void throwUnknownClass(const char* action, std::string_view className) {
    util::FixedStream<4096> text;
    text << "Trying to " << action << " on a class that doesn't exist. Class name '"
         << std::string(className).c_str() << "'.";
    throw ClassifierException(text.str());
}

// Offers the token as a keyword of the class with the greatest share of its values; the first of equals wins.
void selectKeyword(const Scoring& scoring, const storage::ParameterAccessor& accessor,
                   const TokenCounts::Entry& entry, const std::vector<storage::ClassEntry>& classes,
                   Keywords& keywords) {
    if (keywords.limit() == 0) {
        return;
    }
    double best = keywords.minProbability();
    const storage::ClassEntry* strongest = nullptr;
    for (const storage::ClassEntry& candidate : classes) {
        const double share = scoring.tokenValue()[candidate._classIndex] / scoring.valueSum();
        if (share > best) {
            best = share;
            strongest = &candidate;
        }
    }
    if (strongest != nullptr) {
        keywords.offer(
            Keyword(accessor.feature, entry.token.size(), best, entry.count, strongest->name.c_str()));
    }
}

std::vector<ClassInformation> informationOf(const std::vector<storage::ClassEntry>& classes) {
    std::vector<ClassInformation> information;
    information.reserve(classes.size());
    for (const storage::ClassEntry& entry : classes) {
        information.push_back({entry.name, entry._unique, entry._count});
    }
    return information;
}

// Calls visit(records, count) for each token that the classifier knows. Tokens are looked up in blocks, and
// those of one lane together, so that none waits for memory alone.
template <class Visit>
void forEachKnown(const TokenCounts& tokenCounts, const storage::FeatureSet& features, Visit visit) {
    constexpr std::size_t BLOCK = 256;
    const char* tokens[BLOCK];
    std::uint32_t counts[BLOCK];
    storage::FeatureRecords found[BLOCK];
    auto next = tokenCounts.begin();
    for (std::size_t rest = tokenCounts.size(); rest > 0;) {
        const std::size_t size = std::min(rest, BLOCK);
        rest -= size;
        sortByLength(next, size, tokens, counts,
                     [&](std::size_t length, std::size_t begin, std::size_t count) {
                         features.lane(length).lookupAll(tokens + begin, count, found + begin);
                     });
        for (std::size_t i = 0; i < size; ++i) {
            if (found[i].size > 0) {
                visit(found[i], counts[i]);
            }
        }
    }
}

// Calls visit(accessor, entry) for each token that the classifier knows, in the order of the text, which
// decides between keywords of equal share.
template <class Visit>
void forEachFound(const TokenCounts& tokenCounts, const storage::FeatureSet& features, Visit visit) {
    storage::ParameterAccessor accessor(features.classes().size());
    for (const TokenCounts::Entry entry : tokenCounts) {
        features.lane(entry.token.size()).lookup(entry.token, accessor);
        if (accessor.classes > 0) {
            visit(accessor, entry);
        }
    }
}

}  // namespace

ClassifierImpl::ClassifierImpl(CallbackFactory* factory, double smoothing)
    : _callback(factory != nullptr ? factory->create() : std::make_unique<DefaultCallback>()),
      _dataVersion(DATA_VERSION),
      _extractorVersion(NEWEST_EXTRACTOR),
      _smoothing(smoothing),
      _extractor(makeFeatureExtractor(NEWEST_EXTRACTOR)) {}

ClassifierImpl::ClassifierImpl(const ClassifierImpl& other)
    : _callback(other._callback->clone()),
      _dataVersion(other._dataVersion),
      _extractorVersion(other._extractorVersion),
      _smoothing(other._smoothing),
      _extractor(makeFeatureExtractor(other._extractorVersion)),
      _features(other._features) {}

ClassifierImpl::~ClassifierImpl() = default;

void ClassifierImpl::swap(Classifier& classifier) {
    auto& other = dynamic_cast<ClassifierImpl&>(classifier);
    std::swap(_callback, other._callback);
    std::swap(_dataVersion, other._dataVersion);
    std::swap(_extractorVersion, other._extractorVersion);
    std::swap(_smoothing, other._smoothing);
    std::swap(_extractor, other._extractor);
    _features.swap(other._features);
    _weights.forget();
    other._weights.forget();
}

std::unique_ptr<Classifier> ClassifierImpl::clone() const {
    return std::unique_ptr<Classifier>(new ClassifierImpl(*this));
}

bool ClassifierImpl::classExists(std::string_view className) const {
    return _features.classExists(className);
}

void ClassifierImpl::addClass(std::string_view className) {
    _weights.forget();
    _features.addClass(className);
}

void ClassifierImpl::removeClass(std::string_view className) {
    _weights.forget();
    _features.removeClass(className);
}

void ClassifierImpl::train(std::string_view className, std::string_view text) {
    TokenCounts tokenCounts;
    _extractor->extract(text, tokenCounts);
    if (className.empty()) {
        throw ClassifierException(
            "When training the classifier the class name must at least have one character.");
    }
    if (tokenCounts.empty()) {
        return;
    }
    if (!classExists(className)) {
        throwUnknownClass("train", className);
    }
    _weights.forget();
    _features.addAll(className, TokensByLength(tokenCounts).groups());
}

void ClassifierImpl::untrain(std::string_view className, std::string_view text) {
    TokenCounts tokenCounts;
    _extractor->extract(text, tokenCounts);
    if (className.empty()) {
        throw ClassifierException(
            "When untraining the classifier the class name must at least have one character.");
    }
    if (tokenCounts.empty()) {
        return;
    }
    if (!classExists(className)) {
        throwUnknownClass("untrain", className);
    }
    _weights.forget();
    _features.subAll(className, TokensByLength(tokenCounts).groups());
}

void ClassifierImpl::compact() { _features.compact(); }

void ClassifierImpl::classify(std::string_view text, Classification& classification) const {
    TokenCounts tokenCounts;
    _extractor->extract(text, tokenCounts);
    if (_features.classes().empty() || !ProductWeights::areFor(_smoothing)) {
        classifyTokens(tokenCounts, classification, noKeywords);
        return;
    }
    ProductScoring scoring(
        *_weights.get([this] { return std::make_unique<ProductWeights>(_features.classes(), _smoothing); }));
    forEachKnown(
        tokenCounts, _features,
        [&scoring](const storage::FeatureRecords& token, std::uint32_t count) { scoring.add(token, count); });
    answer(tokenCounts, scoring.found(), scoring.probabilities(), classification);
}

void ClassifierImpl::classifyKeywords(std::string_view text, Keywords& keywords) const {
    TokenCounts tokenCounts;
    const KeywordExtractor extractor(_extractor->getMaxTokenSize(),
                                     _extractorVersion > EXTRACTOR_WITHOUT_FOLDING);
    extractor.extract(text, tokenCounts);
    if (_features.classes().empty() || !ProductWeights::areFor(_smoothing)) {
        Classification unused;
        classifyTokens(tokenCounts, unused, keywords);
        return;
    }
    // Probabilities that nobody sees and that are valid for sure aren't worth their logarithms.
    Scoring scoring(_features.classes(), _smoothing);
    forEachFound(tokenCounts, _features,
                 [&](const storage::ParameterAccessor& accessor, const TokenCounts::Entry& entry) {
                     scoring.evaluate(accessor);
                     selectKeyword(scoring, accessor, entry, _features.classes(), keywords);
                 });
}

void ClassifierImpl::classifyTokens(const TokenCounts& tokenCounts, Classification& classification,
                                    Keywords& keywords) const {
    const std::vector<storage::ClassEntry>& classes = _features.classes();
    if (classes.empty()) {
        throw ClassifierException("Trying to classify a text before any classes have been added!");
    }
    Scoring scoring(classes, _smoothing);
    forEachFound(tokenCounts, _features,
                 [&](const storage::ParameterAccessor& accessor, const TokenCounts::Entry& entry) {
                     scoring.add(accessor, entry.count);
                     selectKeyword(scoring, accessor, entry, classes, keywords);
                 });
    answer(tokenCounts, scoring.found(), scoring.probabilities(), classification);
}

void ClassifierImpl::answer(const TokenCounts& tokenCounts, double found, std::vector<double> probabilities,
                            Classification& classification) const {
    classification.setTextCoverage(tokenCounts.empty() ? 0.0
                                                       : found / static_cast<double>(tokenCounts.size()));
    for (const double probability : probabilities) {
        requireValid(probability);
    }
    classification.setProbabilities(_features.classNames(), std::move(probabilities));
}

// Stored data may bring any smoothing with it, so this can fail without a fault in the program.
void ClassifierImpl::requireValid(double probability) const {
    if (!std::isfinite(probability)) {
        report("A probability is not fininte. One of the normalized probabilities are not valid.", __LINE__);
    }
    if (std::isnan(probability)) {
        report("A probability is not a number. One of the normalized probabilities are not valid.", __LINE__);
    }
    if (!(0.0 <= probability && probability <= 1.0)) {
        report(
            "A probability is not between 0 and 1 inclusive. "
            "One of the normalized probabilities are not valid.",
            __LINE__);
    }
}

void ClassifierImpl::report(const char* description, std::uint32_t line) const {
    _callback->report("ClassifierImpl failure", description, debug::UnitName(__FILE__).c_str(), line);
}

std::size_t ClassifierImpl::classCount() const { return _features.classes().size(); }

std::vector<ClassInformation> ClassifierImpl::getInformation() const {
    if (_features.isSettled()) {
        return informationOf(_features.classes());
    }
    storage::FeatureSet settled(_features);
    settled.settle();
    return informationOf(settled.classes());
}

void ClassifierImpl::getTrainingData(util::Bytes& out) const {
    util::Pieces pieces;
    getTrainingData(pieces);
    out.clear();
    pieces.appendTo(out);
}

void ClassifierImpl::getTrainingData(util::Pieces& out) const {
    util::Bytes header;
    util::database::writePrimitive(header, _dataVersion);
    util::database::writePrimitive(header, _extractorVersion);
    util::database::writePrimitive(header, _smoothing);
    out.add(std::move(header));
    _features.serialize(out);
}

void ClassifierImpl::setTrainingData(const util::Bytes& data) {
    _features.clear();
    setTrainingData(util::Bytes(data));
}

void ClassifierImpl::setTrainingData(util::Bytes&& data) {
    _weights.forget();
    _features.clear();
    try {
        load(std::move(data));
    } catch (const util::database::DatabaseReaderException& exception) {
        _features.clear();
        util::FixedStream<4096> text;
        text << "The data that the Classifier is being set with seems to be corrupt. " << exception.what();
        throw ClassifierException(text.str());
    } catch (const std::bad_alloc&) {
        _features.clear();
        throw;
    }
}

void ClassifierImpl::load(util::Bytes data) {
    if (data.empty()) {
        throw ClassifierException("Trying to load classifier with empty training data.");
    }
    const auto version = util::database::DatabaseReader(data).getNextPrimitive<std::uint32_t>();
    if (version == DATA_VERSION) {
        deserialize(std::move(data));
        return;
    }
    if (version >= OLDEST_DATA_VERSION && version < DATA_VERSION) {
        util::Bytes migrated;
        migrated.reserve(data.size());
        storage::migrate(data, migrated);
        deserialize(std::move(migrated));
        return;
    }
    util::FixedStream<128> text;
    text << "Trying to set the training data with a version that is not valid (" << version << "). Aborting.";
    throw ClassifierException(text.str());
}

void ClassifierImpl::deserialize(util::Bytes data) {
    const auto owner = std::make_shared<const util::Bytes>(std::move(data));
    util::database::DatabaseReader reader(*owner);
    if (reader.getNextPrimitive<std::uint32_t>() != DATA_VERSION) {
        throw ClassifierException("Expected version 5 data to deserialize");
    }
    _dataVersion = DATA_VERSION;
    const auto extractorVersion = reader.getNextPrimitive<std::uint32_t>();
    const auto smoothing = reader.getNextPrimitive<double>();
    // Made before anything is taken over, so that version and extractor always fit together.
    _extractor = makeFeatureExtractor(extractorVersion);
    _extractorVersion = extractorVersion;
    _smoothing = smoothing;
    _features.deserialize(reader, owner);
    if (!reader.atEnd()) {
        report("There should exist no more training data at this point.", __LINE__);
    }
}

}  // namespace halvern::classifier
