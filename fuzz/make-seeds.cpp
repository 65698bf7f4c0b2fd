// Writes the first inputs that nobody can read or write by hand: make-seeds FOLDER makes one folder for each
// target below it.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>

#include "Store.h"

namespace {

void write(const std::filesystem::path& folder, const std::string& name, const util::Bytes& bytes) {
    std::filesystem::create_directories(folder);
    std::ofstream(folder / name, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("Usage: make-seeds FOLDER\n", stderr);
        return 1;
    }
    const std::filesystem::path root = argv[1];
    const auto data = root / "training-data";
    write(data, "empty", support::StoredClassifier().bytes());
    write(data, "two-classes", fuzz::twoClasses().bytes());
    for (std::uint32_t extractor = 3; extractor <= 7; ++extractor) {
        write(data, "extractor-" + std::to_string(extractor), fuzz::threeClasses(extractor).bytes());
    }
    write(data, "without-smoothing", fuzz::smoothedBy(0).bytes());
    write(data, "negative-smoothing", fuzz::smoothedBy(-1).bytes());
    write(data, "no-number", fuzz::smoothedBy(std::numeric_limits<double>::quiet_NaN()).bytes());
    write(data, "cut", fuzz::damaged(fuzz::twoClasses().bytes()));
    auto full = fuzz::twoClasses();
    full.classes[0].count = std::numeric_limits<std::uint32_t>::max();
    write(data, "full-class", full.bytes());
    write(data, "version-3", fuzz::oldClasses(3).bytes());

    // Any bytes make requests; these reach most calls.
    for (const int step : {1, 5, 7, 11, 13}) {
        util::Bytes choices;
        for (int i = 0; i < 200; ++i) {
            choices.push_back(static_cast<char>(i * step));
        }
        write(root / "calls", "step-" + std::to_string(step), choices);
    }

    write(data, "version-4", fuzz::oldClasses(4).bytes());
    write(data, "no-classes", support::OldClassifier().bytes());
    write(data, "cut-old", fuzz::damaged(fuzz::oldClasses(3).bytes()));
    support::OldClassifier longest = {.dataVersion = 4, .classes = {{"a", {}}}};
    longest.classes[0].lanes.resize(32);
    longest.classes[0].lanes[31] = {{std::string(31, 'x'), 1}};
    write(data, "longest-token", longest.bytes());
    return 0;
}
