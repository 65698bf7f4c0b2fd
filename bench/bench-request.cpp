// What one request costs from its bytes to the bytes of its answer, without sockets and without a disk.

#include <benchmark/benchmark.h>

#include <string>

#include "bench/Requests.h"

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

}  // namespace

BENCHMARK_MAIN();
