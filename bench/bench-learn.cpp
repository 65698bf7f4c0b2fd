// How fast texts are learned through the protocol, each answer standing for a commit that is on the disk. The
// server runs in this process and is asked over its socket; the clock is that of the wall.
//
//   bench-learn SET-FOLDER DIRECTORY [TEXTS-ALONE]
//
// SET-FOLDER holds train.tsv, one "label<TAB>text" a line; classifiers go into DIRECTORY, on the disk that is
// to be measured. First the whole set in requests of 1,000 texts, several times over; then TEXTS-ALONE
// requests of one text to the classifier that has learned all, each followed by what no durable answer can do
// without: the same bytes written to a new file, fsync, rename, fsync of the directory.

#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "bench/Composition.h"
#include "bench/Samples.h"
#include "io/filesystem/ExistsFile.h"
#include "io/filesystem/LoadFile.h"
#include "io/filesystem/RemoveFile.h"
#include "io/filesystem/SaveFile.h"
#include "io/filesystem/SizeFile.h"
#include "net/server/ThreadServer.h"
#include "net/socket/ClientSocketImpl.h"
#include "net/socket/SocketStreamImpl.h"
#include "platform/thread/ThreadFactoryImpl.h"
#include "server/ClassifyConnection.h"
#include "server/ConnectionParams.h"
#include "server/TerminateHandlerImpl.h"
#include "util/Base64.h"
#include "windows/net/winsock/WinsockErrors.h"

using namespace halvern::morvane;

namespace {

using Clock = std::chrono::steady_clock;
using bench::readSamples;
using bench::Samples;

constexpr std::size_t BATCH = 1000;
constexpr int PASSES = 7;

[[noreturn]] void giveUp(const std::string& text) {
    std::fprintf(stderr, "%s\n", text.c_str());
    std::exit(1);
}

class Server {
public:
    explicit Server(const std::string& root) : _inside({_load, _save, _exists, _size, _remove}, root) {
        _server =
            std::make_unique<ThreadServer>(_threads, 0, 8, 64, &_params, nullptr, net::socket::IdleBounds{});
        _server->start();
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server() {
        _server->stop();
        _server->join();
    }

    // Ends the program if the server says no: a benchmark of failures would be fast and wrong.
    void ask(const std::string& request) const {
        net::socket::ClientSocketImpl client(_mapper, _streams);
        net::socket::SocketStream& stream = client.connect("127.0.0.1", _server->port());
        stream.write(request.data(), request.size());
        stream.shutdown(net::socket::SocketStream::SEND);
        std::string answer;
        char buffer[16384];
        while (const std::size_t bytes = stream.read(buffer, sizeof(buffer))) {
            answer.append(buffer, bytes);
        }
        if (answer.find("success=\"true\"") == std::string::npos) {
            giveUp(answer);
        }
    }

private:
    using ThreadServer = net::server::ThreadServer<ClassifyConnection, const ConnectionParams*>;

    io::filesystem::LoadFileImpl _load;
    io::filesystem::SaveFileImpl _save;
    io::filesystem::ExistsFileImpl _exists;
    io::filesystem::SizeFileImpl _size;
    io::filesystem::RemoveFileImpl _remove;
    bench::Composition _inside;
    TerminateHandlerImpl _terminateHandler{_inside.log};
    const ConnectionParams _params{UINT64_MAX, _inside.log, *_inside.factory, _inside.errors,
                                   _terminateHandler};
    platform::thread::ThreadFactoryImpl _threads;
    std::unique_ptr<ThreadServer> _server;
    const windows::net::winsock::WinsockErrors _mapper;
    const net::socket::SocketStreamFactoryImpl _streams{_mapper};
};

std::string request(const std::string& classifier, const std::string& texts, const std::string& calls) {
    return bench::requestAround((texts.empty() ? "" : "<texts>\n" + texts + "</texts>\n") +
                                "<writeCalls classifierName=\"" + classifier + "\">\n" + calls +
                                "</writeCalls>\n");
}

std::string makingOf(const std::string& classifier, const Samples& samples) {
    std::set<std::string> classes;
    std::string calls = "<create id=\"create\"/>\n";
    for (const auto& sample : samples) {
        if (classes.insert(sample.first).second) {
            calls += "<addClass id=\"a" + std::to_string(classes.size()) + "\" className=\"" + sample.first +
                     "\"/>\n";
        }
    }
    return request(classifier, "", calls);
}

std::string trainingOf(const std::string& classifier, const Samples& samples, std::size_t first,
                       std::size_t count) {
    std::string texts;
    std::string calls;
    for (std::size_t i = first; i < std::min(samples.size(), first + count); ++i) {
        std::string encoded;
        util::Base64EncoderImpl().encode(util::Bytes(samples[i].second.begin(), samples[i].second.end()),
                                         encoded);
        const std::string id = std::to_string(i);
        texts += "<textBase64 id=\"t" + id + "\">" + encoded + "</textBase64>\n";
        calls +=
            "<train id=\"c" + id + "\" className=\"" + samples[i].first + "\" textId=\"t" + id + "\"/>\n";
    }
    return request(classifier, texts, calls);
}

// Of all threads but this one, which is the client: what other work on the machine hardly changes.
double serverCpuSeconds() {
    const auto read = [](clockid_t clock) {
        timespec now{};
        clock_gettime(clock, &now);
        return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
    };
    return read(CLOCK_PROCESS_CPUTIME_ID) - read(CLOCK_THREAD_CPUTIME_ID);
}

double seconds(Clock::duration time) { return std::chrono::duration<double>(time).count(); }

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                     values.end());
    return values[values.size() / 2];
}

void require(bool done, const char* what) {
    if (!done) {
        std::perror(what);
        std::exit(1);
    }
}

// With open and close of both, as no save can do without them.
void saveBare(const std::filesystem::path& directory, const std::string& bytes) {
    const std::string fresh = directory / "bare.new";
    const std::string final = directory / "bare";
    const int file = open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    require(file >= 0, "open");
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count = write(file, bytes.data() + done, bytes.size() - done);
        require(count > 0, "write");
        done += static_cast<std::size_t>(count);
    }
    require(fsync(file) == 0, "fsync");
    require(close(file) == 0, "close");
    require(rename(fresh.c_str(), final.c_str()) == 0, "rename");
    const int folder = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    require(folder >= 0, "open");
    require(fsync(folder) == 0, "fsync");
    close(folder);
}

std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Gives the name of the classifier that has learned all last.
std::string measureBatches(const Server& server, const Samples& samples) {
    std::vector<double> rates;
    std::vector<double> cpu;
    std::string name;
    for (int pass = 0; pass < PASSES; ++pass) {
        name = "learned" + std::to_string(pass);
        std::vector<std::string> requests;
        for (std::size_t first = 0; first < samples.size(); first += BATCH) {
            requests.push_back(trainingOf(name, samples, first, BATCH));
        }
        server.ask(makingOf(name, samples));
        const double cpuStart = serverCpuSeconds();
        const Clock::time_point start = Clock::now();
        for (const std::string& each : requests) {
            server.ask(each);
        }
        cpu.push_back((serverCpuSeconds() - cpuStart) / static_cast<double>(samples.size()));
        rates.push_back(static_cast<double>(samples.size()) / seconds(Clock::now() - start));
    }
    std::printf(
        "%zu texts a request: %.0f texts/s (median of %d passes; best %.0f), %.2f us of the server's "
        "CPU a text (best %.2f)\n",
        BATCH, median(rates), PASSES, *std::max_element(rates.begin(), rates.end()), median(cpu) * 1e6,
        *std::min_element(cpu.begin(), cpu.end()) * 1e6);
    return name;
}

void measureAlone(const Server& server, const std::filesystem::path& directory, const std::string& name,
                  const Samples& samples, std::size_t count) {
    std::vector<double> learning;
    std::vector<double> bare;
    const double cpuStart = serverCpuSeconds();
    for (std::size_t i = 0; i < count; ++i) {
        const std::string one = trainingOf(name, samples, i % samples.size(), 1);
        Clock::time_point start = Clock::now();
        server.ask(one);
        learning.push_back(seconds(Clock::now() - start));
        const std::string bytes = contentOf(directory / (name + ".dat"));
        start = Clock::now();
        saveBare(directory, bytes);
        bare.push_back(seconds(Clock::now() - start));
    }
    const auto sum = [](const std::vector<double>& times) {
        double all = 0.0;
        for (const double time : times) {
            all += time;
        }
        return all;
    };
    const double texts = static_cast<double>(count);
    std::printf(
        "1 text a request: %.0f texts/s, bare saves of the same bytes %.0f/s: %.1f %%; by medians "
        "%.3f ms and %.3f ms: %.1f %%; %.3f ms of the server's CPU a text; a file of %.2f MB\n",
        texts / sum(learning), texts / sum(bare), 100.0 * sum(bare) / sum(learning), median(learning) * 1e3,
        median(bare) * 1e3, 100.0 * median(bare) / median(learning),
        (serverCpuSeconds() - cpuStart) * 1e3 / texts,
        static_cast<double>(contentOf(directory / (name + ".dat")).size()) / 1e6);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::printf("bench-learn skipped: it takes the folder of a data set and a directory to write to\n");
        return 0;
    }
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);  // as the program does
    const Samples samples = readSamples(std::filesystem::path(argv[1]) / "train.tsv");
    const std::filesystem::path directory = std::filesystem::path(argv[2]) / "bench-learn";
    if (samples.empty() || !std::filesystem::create_directories(directory)) {
        giveUp("There are no labelled texts in train.tsv, or the directory holds a bench-learn already.");
    }
    {
        const Server server(directory);
        const std::string name = measureBatches(server, samples);
        measureAlone(server, directory, name, samples, argc > 3 ? std::strtoul(argv[3], nullptr, 10) : 300);
    }
    std::filesystem::remove_all(directory);
    return 0;
}
