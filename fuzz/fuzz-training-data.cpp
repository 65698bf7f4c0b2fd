// Classifier data: loaded, asked, trained and written. The end of the data also serves as a text, so that the
// text has features that the data holds.
#include <algorithm>
#include <cmath>
#include <set>
#include <string_view>

#include "Target.h"
#include "classifier/Classification.h"
#include "classifier/ClassifierException.h"
#include "classifier/ClassifierImpl.h"
#include "support/RecordingCallback.h"

namespace {

using namespace halvern::classifier;

class Loaded {
public:
    // Throws ClassifierException.
    explicit Loaded(const util::Bytes& data) : _classifier(&_callbacks, 1.0) {
        _classifier.setTrainingData(data);
        _hasRest = !_callbacks.reports.empty();
        _callbacks.reports.clear();
    }

    ClassifierImpl& operator*() { return _classifier; }
    ClassifierImpl* operator->() { return &_classifier; }
    // Whether there were bytes behind the last lane.
    bool hasRest() const { return _hasRest; }
    util::Bytes saved() const {
        util::Bytes out;
        _classifier.getTrainingData(out);
        return out;
    }
    double smoothing() const {
        double value = 0;
        std::memcpy(&value, saved().data() + 8, sizeof(value));
        return value;
    }
    // The classes, or none if two have one name: such a table loads, but the later of the two is never found.
    std::vector<ClassInformation> classes() const {
        auto classes = _classifier.getInformation();
        std::set<std::string> names;
        for (const auto& each : classes) {
            names.insert(each.name);
        }
        return names.size() == classes.size() ? classes : std::vector<ClassInformation>();
    }
    bool wasReported() const { return !_callbacks.reports.empty(); }

private:
    support::RecordingCallbackFactory _callbacks;
    ClassifierImpl _classifier;
    bool _hasRest;
};

void ask(Loaded& loaded, std::string_view text) {
    const auto classes = loaded.classes();
    if (classes.empty()) {
        return;
    }
    Classification classification;
    loaded->classify(text, classification);
    const double smoothing = loaded.smoothing();
    if (std::isfinite(smoothing) && smoothing > 0) {
        double sum = 0;
        for (const auto& [name, probability] : classification.getProbabilities()) {
            PROMISE(probability >= 0 && probability <= 1);
            sum += probability;
        }
        PROMISE(std::abs(sum - 1) < 1e-9);
        PROMISE(!loaded.wasReported());
    }
    PROMISE(classification.getProbabilities().size() == classes.size());
    PROMISE(classification.getTextCoverage() >= 0 && classification.getTextCoverage() <= 1);

    Keywords keywords(3, 0.1);
    loaded->classifyKeywords(text, keywords);
    PROMISE(keywords.size() <= keywords.limit());
    for (const Keyword& keyword : keywords) {
        PROMISE(keyword.probability > 0.1 && keyword.count > 0);
        PROMISE(text.size() >= keyword.length);
        // A keyword shows a class name up to its first zero byte, which only a file can bring into one.
        PROMISE(std::any_of(classes.begin(), classes.end(), [&](const ClassInformation& each) {
            return std::string_view(each.name.c_str()) == keyword.className;
        }));
    }
}

// Training and untraining one text leaves everything as it was.
void trainAndUntrain(Loaded& loaded, std::string_view text) {
    for (const auto& entry : loaded.classes()) {
        if (entry.name.empty()) {
            continue;
        }
        const util::Bytes before = loaded.saved();
        bool trained = true;
        try {
            loaded->train(entry.name, text);
        } catch (const ClassifierException&) {
            trained = false;
        }
        loaded->compact();
        const util::Bytes after = loaded.saved();
        PROMISE(trained || after == before);
        PROMISE(Loaded(after).saved() == after);
        ask(loaded, text);
        if (trained) {
            loaded->untrain(entry.name, text);
            loaded->compact();
            PROMISE(loaded.saved() == before);
        }
        loaded->untrain(entry.name, text);
        loaded->compact();
        ask(loaded, text);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const util::Bytes bytes = fuzz::bytesOf(data, size);
    const std::string_view text(bytes.data() + size - std::min<std::size_t>(size, 64),
                                std::min<std::size_t>(size, 64));
    try {
        Loaded loaded(bytes);
        const util::Bytes saved = loaded.saved();
        PROMISE(bytes[0] != 5 || std::equal(saved.begin(), saved.end(), bytes.begin()));
        PROMISE(bytes[0] != 5 || loaded.hasRest() == (bytes.size() > saved.size()));
        PROMISE(Loaded(saved).saved() == saved);
        PROMISE(!Loaded(saved).hasRest());
        ask(loaded, text);
        trainAndUntrain(loaded, text);
        for (const auto& entry : loaded.classes()) {
            loaded->removeClass(entry.name);
            PROMISE(Loaded(loaded.saved()).saved() == loaded.saved());
        }
    } catch (const ClassifierException&) {
        ClassifierImpl refused(nullptr, 1.0);
        try {
            refused.setTrainingData(bytes);
            PROMISE(false);
        } catch (const ClassifierException&) {
            PROMISE(refused.getInformation().empty());
        }
    }
    return 0;
}
