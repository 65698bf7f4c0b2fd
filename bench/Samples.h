#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

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

}  // namespace bench
