// What one request costs from its bytes to the bytes of its answer, without sockets and without a disk.
//
//   bench-request [options of the benchmark library] [SET...]
//
// For each SET, a folder with train.tsv and test.tsv of "label<TAB>text" a line, it also prints at which
// share of the engine's own rate a request of 10,000 classify calls runs, each with a text of the test part.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/Requests.h"
#include "bench/Samples.h"
#include "classifier/ClassifierImpl.h"
#include "util/Base64.h"
#include "util/EscapeXml.h"

namespace {

using bench::Requests;

void run(benchmark::State& state, const std::string& request) {
    static Requests requests;
    for (auto _ : state) {
        if (!requests.answer(request)) {
            state.SkipWithError("the request failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(request.size()));
}

void classify(benchmark::State& state) {
    run(state,
        Requests::requestOf(state.range(0), "<readCalls>", "classify classifierName='news'", "</readCalls>"));
}
BENCHMARK(classify)->Arg(1)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

void train(benchmark::State& state) {
    run(state, Requests::requestOf(state.range(0), "<writeCalls classifierName='news'>",
                                   "train className='one'", "</writeCalls>"));
}
BENCHMARK(train)->Arg(1)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

// An answer of 0.77 MB for each call.
void describe(benchmark::State& state) {
    std::string calls;
    for (int i = 0; i < state.range(0); ++i) {
        calls += "<getInformation id='" + std::to_string(i) + "' classifierName='wide'/>";
    }
    run(state, Requests::request("", "<readCalls>" + calls + "</readCalls>"));
}
BENCHMARK(describe)->Arg(1)->Arg(5)->Unit(benchmark::kMicrosecond);

std::string encoded(const std::string& text) {
    std::string base64;
    util::Base64EncoderImpl().encode(util::Bytes(text.begin(), text.end()), base64);
    return base64;
}

// Has the samples learned as a classifier of this name.
void learn(Requests& requests, const std::string& classifierName, const bench::Samples& samples) {
    halvern::classifier::ClassifierImpl classes(nullptr, 0.05);
    std::string texts;
    std::string calls = "<create id='create'/>";
    std::size_t count = 0;
    const auto send = [&] {
        std::string request = "<writeCalls classifierName='";
        request.append(classifierName).append("'>").append(calls).append("</writeCalls>");
        if (!requests.answer(
                Requests::request(texts.empty() ? "" : "<texts>" + texts + "</texts>", request))) {
            std::fprintf(stderr, "bench-request: a request to learn failed\n");
            std::exit(1);
        }
        texts.clear();
        calls.clear();
    };
    for (const auto& [label, text] : samples) {
        const std::string id = std::to_string(count);
        const std::string name = util::escapeXml(label);
        if (!classes.classExists(label)) {
            classes.addClass(label);
            calls.append("<addClass id='a").append(id).append("' className='").append(name).append("'/>");
        }
        texts.append("<textBase64 id='")
            .append(id)
            .append("'>")
            .append(encoded(text))
            .append("</textBase64>");
        calls.append("<train id='t").append(id).append("' className='").append(name);
        calls.append("' textId='").append(id).append("'/>");
        if (++count % 10000 == 0) {
            send();
        }
    }
    send();
}

// Texts a second of the engine and of one request, in turn, as medians of CPU time.
void compareWithEngine(Requests& requests, const std::filesystem::path& folder) {
    constexpr std::size_t CALLS = 10000;
    constexpr int ROUNDS = 9;
    const std::string name = folder.filename();
    const bench::Samples train = bench::readSamples(folder / "train.tsv");
    const bench::Samples test = bench::readSamples(folder / "test.tsv");
    if (train.empty() || test.empty()) {
        std::printf("%-12s skipped: no train.tsv and test.tsv with labelled texts\n", name.c_str());
        return;
    }
    learn(requests, name, train);
    halvern::classifier::ClassifierImpl engine(nullptr, 0.05);
    bench::learn(engine, train);
    std::string texts = "<texts>";
    std::string calls = "<readCalls>";
    for (std::size_t i = 0; i < CALLS; ++i) {
        const std::string id = std::to_string(i);
        texts.append("<textBase64 id='").append(id).append("'>");
        texts.append(encoded(test[i % test.size()].second)).append("</textBase64>\n");
        calls.append("<classify id='").append(id).append("' classifierName='").append(name);
        calls.append("' textId='").append(id).append("'/>\n");
    }
    const std::string request = Requests::request(texts + "</texts>\n", calls + "</readCalls>\n");
    std::vector<double> bare;
    std::vector<double> whole;
    for (int round = 0; round < ROUNDS; ++round) {
        double start = bench::cpuSeconds();
        for (std::size_t i = 0; i < CALLS; ++i) {
            halvern::classifier::Classification classification;
            engine.classify(test[i % test.size()].second, classification);
        }
        bare.push_back(bench::cpuSeconds() - start);
        start = bench::cpuSeconds();
        if (!requests.answer(request)) {
            std::fprintf(stderr, "bench-request: a request to classify failed\n");
            std::exit(1);
        }
        whole.push_back(bench::cpuSeconds() - start);
    }
    std::nth_element(bare.begin(), bare.begin() + ROUNDS / 2, bare.end());
    std::nth_element(whole.begin(), whole.begin() + ROUNDS / 2, whole.end());
    const double ofEngine = bare[ROUNDS / 2];
    const double ofRequest = whole[ROUNDS / 2];
    std::printf("%-12s %12.0f %12.0f %8.2f %14.2f\n", name.c_str(), CALLS / ofEngine, CALLS / ofRequest,
                ofEngine / ofRequest, (ofRequest - ofEngine) / CALLS * 1e6);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    if (argc < 2) {
        std::printf("Comparison with the engine skipped: it takes folders of data sets\n");
        return 0;
    }
    Requests requests;
    std::printf("%-12s %12s %12s %8s %14s\n", "set", "engine/s", "request/s", "ratio", "more, us/call");
    for (int i = 1; i < argc; ++i) {
        compareWithEngine(requests, argv[i]);
    }
    return 0;
}
