// What a big classifier costs: loading its file from the system's cache, the memory that it stays in,
// learning one word and saving, and learning 10,000 texts in one sequence.
//
//   bench-store DIRECTORY MEGABYTES
//
// The file is made up of two classes and features of 8 bytes, and is written into DIRECTORY. A machine needs
// three times the size in memory.

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

#include "classifier/ClassifierImpl.h"
#include "io/filesystem/LoadFile.h"
#include "io/filesystem/SaveFile.h"
#include "util/Pieces.h"
#include "util/database/DatabaseReader.h"

using namespace halvern::classifier;

namespace {

constexpr std::size_t FEATURE_SIZE = 8;
constexpr std::size_t RECORD_SIZE = FEATURE_SIZE + 6;

double now(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Wall clock and CPU, as other work on the machine takes from the one and not from the other.
class Watch {
public:
    double wall() const { return now(CLOCK_MONOTONIC) - _wall; }
    double cpu() const { return now(CLOCK_PROCESS_CPUTIME_ID) - _cpu; }

private:
    const double _wall = now(CLOCK_MONOTONIC);
    const double _cpu = now(CLOCK_PROCESS_CPUTIME_ID);
};

// Letters in the order of the number, with room between neighbours for words that are new.
void appendFeature(util::Bytes& out, std::uint64_t number) {
    char feature[FEATURE_SIZE];
    number *= 16;
    for (std::size_t i = FEATURE_SIZE; i-- > 0; number /= 26) {
        feature[i] = static_cast<char>('a' + number % 26);
    }
    out.insert(out.end(), feature, feature + FEATURE_SIZE);
}

util::Bytes madeUpFile(std::uint64_t records) {
    using util::database::writePrimitive;
    util::Bytes out;
    out.reserve(records * RECORD_SIZE + 4096);
    writePrimitive(out, std::uint32_t{5});
    writePrimitive(out, std::uint32_t{5});
    writePrimitive(out, 0.05);
    writePrimitive(out, std::uint16_t{2});
    for (const std::uint16_t index : {0, 1}) {
        util::database::writeString(out, index == 0 ? "one" : "two");
        writePrimitive(out, index);
        writePrimitive(out, static_cast<std::uint32_t>(records / 2));
        writePrimitive(out, static_cast<std::uint32_t>(records / 2));
    }
    for (std::size_t length = 0; length < 32; ++length) {
        writePrimitive(out, static_cast<std::uint32_t>(length == FEATURE_SIZE ? records : 0));
        for (std::uint64_t i = 0; length == FEATURE_SIZE && i < records; ++i) {
            appendFeature(out, i);
            writePrimitive(out, static_cast<std::uint16_t>(i % 2));
            writePrimitive(out, std::uint32_t{1});
        }
    }
    return out;
}

std::uint64_t residentBytes() {
    std::ifstream file("/proc/self/statm");
    std::uint64_t all = 0;
    std::uint64_t resident = 0;
    file >> all >> resident;
    return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

void saveBare(const std::string& path, const util::Bytes& bytes) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count = write(file, bytes.data() + done, bytes.size() - done);
        if (count <= 0) {
            std::perror("write");
            std::exit(1);
        }
        done += static_cast<std::size_t>(count);
    }
    fsync(file);
    close(file);
}

void learnAndSave(ClassifierImpl& live, const std::string& path) {
    const Watch whole;
    const auto copy = live.clone();
    copy->train("one", "neverseen");
    copy->compact();
    util::Pieces pieces;
    copy->getTrainingData(pieces);
    const double before = whole.wall();
    const double cpuBefore = whole.cpu();
    io::filesystem::SaveFileImpl().replace(path, pieces);
    const double saved = whole.wall();
    live.swap(*copy);
    std::printf("one word: %.3f s up to the save (CPU %.3f s), save %.3f s\n", before, cpuBefore,
                saved - before);
}

void learnMany(const ClassifierImpl& live) {
    const Watch watch;
    const auto copy = live.clone();
    util::Bytes text;
    for (std::uint64_t i = 0; i < 10000; ++i) {
        text.clear();
        for (std::uint64_t word = 0; word < 10; ++word) {
            appendFeature(text, (i * 10 + word) * 7);
            text.push_back(' ');
        }
        copy->train("one", {text.data(), text.size()});
    }
    const double trained = watch.cpu();
    copy->compact();
    std::printf(
        "10,000 texts of 10 words in one sequence: %.3f s, of which the one compaction %.3f s (CPU)\n",
        watch.cpu(), watch.cpu() - trained);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::printf("bench-store skipped: it takes a directory to write to and a size in MB\n");
        return 0;
    }
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);  // as the program does
    const std::string path = std::filesystem::path(argv[1]) / "bench-store.dat";
    const std::uint64_t records = std::strtoull(argv[2], nullptr, 10) * 1'000'000 / RECORD_SIZE;
    {
        const util::Bytes bytes = madeUpFile(records);
        const Watch bare;
        saveBare(path, bytes);
        std::printf("%llu records, %.1f MB; a bare write and fsync of it: %.3f s (CPU %.3f s)\n",
                    static_cast<unsigned long long>(records), static_cast<double>(bytes.size()) / 1e6,
                    bare.wall(), bare.cpu());
    }
    const double size = static_cast<double>(std::filesystem::file_size(path));
    for (int round = 0; round < 3; ++round) {
        ClassifierImpl classifier(nullptr, 0.05);
        const std::uint64_t before = residentBytes();
        const Watch watch;
        util::Bytes bytes = io::filesystem::LoadFileImpl().load(path);
        const double read = watch.cpu();
        classifier.setTrainingData(std::move(bytes));
        std::printf(
            "load: %.3f s, %.2f GB/s; CPU %.3f s, %.2f GB/s, of which the read %.3f s; resident %.2f %% "
            "over the file\n",
            watch.wall(), size / watch.wall() / 1e9, watch.cpu(), size / watch.cpu() / 1e9, read,
            100.0 * (static_cast<double>(residentBytes() - before) / size - 1.0));
        if (round == 2) {
            learnAndSave(classifier, path);
            learnAndSave(classifier, path);
            learnMany(classifier);
        }
    }
    std::filesystem::remove(path);
    return 0;
}
