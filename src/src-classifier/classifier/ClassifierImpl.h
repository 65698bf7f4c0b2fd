#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "classifier/Callback.h"
#include "classifier/Classifier.h"
#include "classifier/FeatureExtractor.h"
#include "classifier/OnDemand.h"
#include "classifier/ProductScoring.h"
#include "classifier/TokenCounts.h"
#include "classifier/storage/FeatureSet.h"

namespace halvern::classifier {

// One classifier held in memory.
//
// Reading, removing a class and serialising require that compact has followed the last train or untrain; the
// lanes check it.
class ClassifierImpl final : public Classifier {
public:
    // A classifier without classes, of the newest extractor generation. Without a factory, a failure inside
    // the classifier ends the process. smoothing is the additive constant of the scoring, above 0; 0.05 is
    // the usual one.
    ClassifierImpl(CallbackFactory* factory, double smoothing);
    ~ClassifierImpl() override;

    void swap(Classifier& other) override;
    std::unique_ptr<Classifier> clone() const override;
    bool classExists(std::string_view className) const override;
    void addClass(std::string_view className) override;
    void removeClass(std::string_view className) override;
    void train(std::string_view className, std::string_view text) override;
    void untrain(std::string_view className, std::string_view text) override;
    void compact() override;
    void classify(std::string_view text, Classification& classification) const override;
    void classifyKeywords(std::string_view text, Keywords& keywords) const override;
    std::size_t classCount() const override;
    std::vector<ClassInformation> getInformation() const override;
    void getTrainingData(util::Bytes& out) const override;
    void getTrainingData(util::Pieces& out) const override;
    // What lies behind the last lane is reported to the callback and ignored. The extractor's generation and
    // the smoothing may stay those of damaged data.
    void setTrainingData(const util::Bytes& data) override;
    void setTrainingData(util::Bytes&& data) override;

private:
    ClassifierImpl(const ClassifierImpl& other);

    void classifyTokens(const TokenCounts& tokenCounts, Classification& classification,
                        Keywords& keywords) const;
    void answer(const TokenCounts& tokenCounts, double found, std::vector<double> probabilities,
                Classification& classification) const;
    void requireValid(double probability) const;
    void report(const char* description, std::uint32_t line) const;
    void load(util::Bytes data);
    void deserialize(util::Bytes data);

    std::unique_ptr<Callback> _callback;
    std::uint32_t _dataVersion;
    std::uint32_t _extractorVersion;
    double _smoothing;
    std::unique_ptr<FeatureExtractor> _extractor;  // always of the generation _extractorVersion
    storage::FeatureSet _features;
    OnDemand<std::unique_ptr<const ProductWeights>> _weights;  // of the class table
};

}  // namespace halvern::classifier
