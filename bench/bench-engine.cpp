// How fast the engine extracts, scores, trains, copies, saves and loads.
//
// Made-up text always; real texts too if the environment variable MORVANE_DATA names a folder with sets like
// agmini/train.tsv, one "label<TAB>text" a line.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "bench/Samples.h"
#include "classifier/ClassifierImpl.h"

using namespace halvern::classifier;

namespace {

using bench::readSamples;
using bench::Samples;

// Words of a made-up language: frequent ones short, rare ones long, each class with a liking for some of
// them.
std::string madeUpText(std::mt19937& random, unsigned topic, unsigned words) {
    static const char syllables[] = "kalomirestudevanopiquetagoluferi";
    std::string text;
    for (unsigned i = 0; i < words; ++i) {
        auto word = static_cast<std::uint64_t>(std::pow(2.0, static_cast<double>(random() % 16000) / 1000.0));
        if (random() % 3 == 0) {
            word += 7919ull * (topic + 1);
        }
        for (; word > 0; word /= 16) {
            text.append(syllables + word % 16 * 2, 2);
        }
        text += random() % 12 == 0 ? ". " : " ";
    }
    return text;
}

Samples madeUpSamples(unsigned classes, unsigned count) {
    std::mt19937 random(11);
    Samples samples;
    for (unsigned i = 0; i < count; ++i) {
        const unsigned topic = i % classes;
        samples.emplace_back("class" + std::to_string(topic), madeUpText(random, topic, 40));
    }
    return samples;
}

std::unique_ptr<ClassifierImpl> trainedOn(const Samples& samples) {
    auto classifier = std::make_unique<ClassifierImpl>(nullptr, 0.05);
    for (const auto& [label, text] : samples) {
        if (!classifier->classExists(label)) {
            classifier->addClass(label);
        }
        classifier->train(label, text);
    }
    classifier->compact();
    return classifier;
}

// A classifier of so many classes that has seen 40,000 texts, made once for all benchmarks.
const ClassifierImpl& madeUpClassifier(unsigned classes) {
    static std::map<unsigned, std::unique_ptr<ClassifierImpl>> classifiers;
    std::unique_ptr<ClassifierImpl>& classifier = classifiers[classes];
    if (classifier == nullptr) {
        classifier = trainedOn(madeUpSamples(classes, 40000));
    }
    return *classifier;
}

void setBytes(benchmark::State& state, std::size_t bytesOfOne) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytesOfOne));
}

void extract(benchmark::State& state) {
    std::mt19937 random(5);
    const std::string text = madeUpText(random, 1, static_cast<unsigned>(state.range(1)));
    const auto extractor = makeFeatureExtractor(static_cast<std::uint32_t>(state.range(0)));
    for (auto _ : state) {
        TokenCounts tokenCounts;
        extractor->extract(text, tokenCounts);
        benchmark::DoNotOptimize(tokenCounts.size());
    }
    setBytes(state, text.size());
}
BENCHMARK(extract)->ArgNames({"generation", "words"})->ArgsProduct({{3, 4, 5, 6, 7}, {40, 20000}});

void classify(benchmark::State& state) {
    const ClassifierImpl& classifier = madeUpClassifier(static_cast<unsigned>(state.range(0)));
    std::mt19937 random(6);
    std::vector<std::string> texts;
    for (int i = 0; i < 256; ++i) {
        texts.push_back(madeUpText(random, random() % 4, 40));
    }
    std::size_t next = 0;
    std::size_t bytes = 0;
    for (auto _ : state) {
        Classification classification;
        classifier.classify(texts[next % texts.size()], classification);
        benchmark::DoNotOptimize(classification.getTextCoverage());
        bytes += texts[next++ % texts.size()].size();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}
BENCHMARK(classify)->ArgName("classes")->Arg(2)->Arg(4)->Arg(20)->Arg(80);

void classifyKeywords(benchmark::State& state) {
    const auto classes = static_cast<unsigned>(state.range(0));
    const ClassifierImpl& classifier = madeUpClassifier(classes);
    std::mt19937 random(6);
    const std::string text = madeUpText(random, 0, 400);
    for (auto _ : state) {
        Keywords keywords(30, 1.8 / (classes + 1));
        classifier.classifyKeywords(text, keywords);
        benchmark::DoNotOptimize(keywords.size());
    }
    setBytes(state, text.size());
}
BENCHMARK(classifyKeywords)->ArgName("classes")->Arg(2)->Arg(80);

// What one write call costs apart from the copy and the file.
void trainAndCompact(benchmark::State& state) {
    const std::unique_ptr<Classifier> classifier =
        madeUpClassifier(static_cast<unsigned>(state.range(0))).clone();
    std::mt19937 random(8);
    for (auto _ : state) {
        state.PauseTiming();
        const std::string text = madeUpText(random, 0, 40);
        state.ResumeTiming();
        classifier->train("class0", text);
        classifier->compact();
    }
}
BENCHMARK(trainAndCompact)->ArgName("classes")->Arg(2)->Arg(80)->Unit(benchmark::kMillisecond);

void trainManyThenCompact(benchmark::State& state) {
    const Samples samples = madeUpSamples(4, 10000);
    std::size_t bytes = 0;
    for (const auto& [label, text] : samples) {
        bytes += text.size();
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(trainedOn(samples));
    }
    setBytes(state, bytes);
}
BENCHMARK(trainManyThenCompact)->Unit(benchmark::kMillisecond);

void clone(benchmark::State& state) {
    const ClassifierImpl& classifier = madeUpClassifier(20);
    util::Bytes bytes;
    classifier.getTrainingData(bytes);
    for (auto _ : state) {
        benchmark::DoNotOptimize(classifier.clone());
    }
    setBytes(state, bytes.size());
}
BENCHMARK(clone)->Unit(benchmark::kMillisecond);

void save(benchmark::State& state) {
    const ClassifierImpl& classifier = madeUpClassifier(20);
    std::size_t size = 0;
    for (auto _ : state) {
        util::Bytes bytes;
        classifier.getTrainingData(bytes);
        size = bytes.size();
    }
    setBytes(state, size);
}
BENCHMARK(save)->Unit(benchmark::kMillisecond);

void load(benchmark::State& state) {
    util::Bytes bytes;
    madeUpClassifier(20).getTrainingData(bytes);
    for (auto _ : state) {
        ClassifierImpl classifier(nullptr, 0.05);
        classifier.setTrainingData(bytes);
    }
    setBytes(state, bytes.size());
}
BENCHMARK(load)->Unit(benchmark::kMillisecond);

// Trains on the set's train.tsv; tells the share of test.tsv that gets its own label.
void realTexts(benchmark::State& state, const std::string& folder) {
    const Samples test = readSamples(folder + "/test.tsv");
    const std::unique_ptr<ClassifierImpl> classifier = trainedOn(readSamples(folder + "/train.tsv"));
    std::size_t next = 0;
    std::size_t bytes = 0;
    const auto strongest = [](const Classification& classification) {
        std::pair<std::string, double> best{"", -1.0};
        for (const auto& entry : classification.getProbabilities()) {
            best = entry.second > best.second ? std::pair<std::string, double>(entry) : best;
        }
        return best.first;
    };
    for (auto _ : state) {
        Classification classification;
        const std::string& text = test[next++ % test.size()].second;
        classifier->classify(text, classification);
        benchmark::DoNotOptimize(classification.getTextCoverage());
        bytes += text.size();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
    std::size_t right = 0;
    for (const auto& [label, text] : test) {
        Classification classification;
        classifier->classify(text, classification);
        right += strongest(classification) == label ? 1 : 0;
    }
    state.counters["right"] = static_cast<double>(right) / static_cast<double>(test.size());
    state.counters["classes"] = static_cast<double>(classifier->getInformation().size());
}

void registerRealTexts() {
    const char* const data = std::getenv("MORVANE_DATA");
    if (data == nullptr) {
        std::fprintf(stderr, "MORVANE_DATA isn't set: no benchmarks on real texts.\n");
        return;
    }
    for (const char* set : {"agmini", "banking77", "sms"}) {
        const std::string folder = std::string(data) + "/" + set;
        if (readSamples(folder + "/train.tsv").empty() || readSamples(folder + "/test.tsv").empty()) {
            std::fprintf(stderr, "No train.tsv and test.tsv of %s in MORVANE_DATA: skipped.\n", set);
            continue;
        }
        benchmark::RegisterBenchmark((std::string("realTexts/") + set).c_str(), realTexts, folder);
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    registerRealTexts();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
