// How fast the engine classifies real texts: learns each set of a folder, then classifies its whole test
// part.
//
//   bench-sets FOLDER [SET...]
//
// A set is FOLDER/SET/train.tsv and test.tsv, one "label<TAB>text" a line (packed ones have to be unpacked
// first). The checksum is made of all probabilities, so that two builds can be told to give the same answers.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/Samples.h"
#include "classifier/ClassifierImpl.h"

using namespace halvern::classifier;

namespace {

using bench::cpuSeconds;
using bench::readSamples;
using bench::Samples;

// Texts a second, as the median of passes over all texts.
double textsPerSecond(const Classifier& classifier, const Samples& samples) {
    constexpr std::size_t LEAST_PASSES = 5;
    constexpr double LEAST_SECONDS = 1.0;
    std::vector<double> passes;
    for (double sum = 0.0; passes.size() < LEAST_PASSES || sum < LEAST_SECONDS; sum += passes.back()) {
        const double start = cpuSeconds();
        for (const auto& sample : samples) {
            Classification classification;
            classifier.classify(sample.second, classification);
        }
        passes.push_back(cpuSeconds() - start);
    }
    std::nth_element(passes.begin(), passes.begin() + passes.size() / 2, passes.end());
    return static_cast<double>(samples.size()) / passes[passes.size() / 2];
}

struct Answers {
    std::size_t right = 0;
    double checksum = 0.0;
};

Answers answersOf(const Classifier& classifier, const Samples& samples) {
    Answers answers;
    for (const auto& [label, text] : samples) {
        Classification classification;
        classifier.classify(text, classification);
        std::string best;
        double greatest = -1.0;
        double place = 1.0;
        for (const auto& [name, probability] : classification.getProbabilities()) {
            if (probability > greatest) {
                best = name;
                greatest = probability;
            }
            answers.checksum += probability * probability * place++;
        }
        answers.checksum += classification.getTextCoverage();
        answers.right += best == label ? 1 : 0;
    }
    return answers;
}

void measure(const std::filesystem::path& folder) {
    const std::string name = folder.filename();
    const Samples test = readSamples(folder / "test.tsv");
    const Samples train = readSamples(folder / "train.tsv");
    if (test.empty() || train.empty()) {
        std::printf("%-12s skipped: no train.tsv and test.tsv with labelled texts\n", name.c_str());
        return;
    }
    ClassifierImpl classifier(nullptr, 0.05);
    bench::learn(classifier, train);
    const Answers answers = answersOf(classifier, test);
    std::printf("%-12s %7zu %12.0f %9.2f%%  %.12g\n", name.c_str(), classifier.getInformation().size(),
                textsPerSecond(classifier, test),
                100.0 * static_cast<double>(answers.right) / static_cast<double>(test.size()),
                answers.checksum);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || !std::filesystem::is_directory(argv[1])) {
        std::printf("bench-sets skipped: it takes a folder of data sets\n");
        return 0;
    }
    std::vector<std::filesystem::path> folders;
    for (int i = 2; i < argc; ++i) {
        folders.push_back(std::filesystem::path(argv[1]) / argv[i]);
    }
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        if (argc == 2 && entry.is_directory()) {
            folders.push_back(entry.path());
        }
    }
    std::sort(folders.begin(), folders.end());
    std::printf("%-12s %7s %12s %10s  %s\n", "set", "classes", "texts/s", "accuracy", "checksum");
    for (const std::filesystem::path& folder : folders) {
        measure(folder);
    }
    return 0;
}
