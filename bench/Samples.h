#pragma once

#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "classifier/Classifier.h"

namespace bench {

using Samples = std::vector<std::pair<std::string, std::string>>;  // label and text

// The lines "label<TAB>text" of the file; none if there is no such file. Lines of another form are passed
// over.
inline Samples readSamples(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    Samples samples;
    for (std::string line; std::getline(file, line);) {
        const std::size_t tab = line.find('\t');
        if (tab != std::string::npos && tab > 0) {
            samples.emplace_back(line.substr(0, tab), line.substr(tab + 1));
        }
    }
    return samples;
}

inline void learn(halvern::classifier::Classifier& classifier, const Samples& samples) {
    for (const auto& [label, text] : samples) {
        if (!classifier.classExists(label)) {
            classifier.addClass(label);
        }
        classifier.train(label, text);
    }
    classifier.compact();
}

// Of this thread. Other work on the machine takes time from the wall clock, but little from this one.
inline double cpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

}  // namespace bench
