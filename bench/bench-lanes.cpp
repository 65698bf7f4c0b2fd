// What a lane costs: lookups in lanes of growing size, compaction after a text or after a whole training,
// saving, loading and copying. Features are random, so that hits and misses touch memory all over the lane.

#include <benchmark/benchmark.h>

#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "classifier/storage/LaneFactory.h"
#include "util/Pieces.h"
#include "util/database/DatabaseReader.h"

namespace {

using halvern::classifier::storage::LaneBase;
using halvern::classifier::storage::ParameterAccessor;
using halvern::classifier::storage::VectorLaneFactory;

constexpr std::size_t featureSize = 8;
constexpr std::uint16_t classCount = 2;
constexpr std::size_t queryCount = 1 << 16;

const VectorLaneFactory factory;

// The i-th feature out of 2^64 scattered ones; those with an even i are stored, the others are not.
std::string featureOf(std::uint64_t i) {
    std::uint64_t mixed = i * 0x9e3779b97f4a7c15u;
    mixed ^= mixed >> 32;
    mixed *= 0xd6e8feb86659fd93u;
    std::string feature(featureSize, 0);
    std::memcpy(feature.data(), &mixed, featureSize);
    return feature;
}

void train(LaneBase& lane, std::uint64_t first, std::uint64_t records) {
    for (std::uint64_t i = first; i < first + records; ++i) {
        lane.add(featureOf(2 * i), static_cast<std::uint16_t>(i % classCount), 1);
    }
}

// Made once for each size: ten million records take ten seconds.
const LaneBase& laneOf(std::uint64_t records) {
    static std::map<std::uint64_t, std::unique_ptr<LaneBase>> lanes;
    auto& lane = lanes[records];
    if (lane == nullptr) {
        lane = factory.create(featureSize);
        train(*lane, 0, records);
        lane->compact({});
    }
    return *lane;
}

void lookup(benchmark::State& state, bool isHit) {
    const std::uint64_t records = static_cast<std::uint64_t>(state.range(0));
    const LaneBase& lane = laneOf(records);
    std::mt19937_64 random(1);
    std::vector<std::string> queries;
    for (std::size_t i = 0; i < queryCount; ++i) {
        queries.push_back(featureOf(2 * (random() % records) + (isHit ? 0 : 1)));
    }
    ParameterAccessor accessor(classCount);
    std::size_t next = 0;
    std::uint64_t found = 0;
    for (auto _ : state) {
        found += lane.lookup(queries[next++ % queryCount], accessor).classes;
    }
    if ((found != 0) != isHit) {
        state.SkipWithError("the lane doesn't hold what it should");
    }
}

void lookupHit(benchmark::State& state) { lookup(state, true); }
void lookupMiss(benchmark::State& state) { lookup(state, false); }

// range(1) new records meet range(0) old ones.
void compact(benchmark::State& state) {
    const std::uint64_t records = static_cast<std::uint64_t>(state.range(0));
    const LaneBase& lane = laneOf(records);
    for (auto _ : state) {
        state.PauseTiming();
        auto copy = factory.clone(featureSize, lane);
        train(*copy, records, static_cast<std::uint64_t>(state.range(1)));
        state.ResumeTiming();
        copy->compact({});
        state.PauseTiming();
        copy.reset();
        state.ResumeTiming();
    }
}

void serialize(benchmark::State& state) {
    const LaneBase& lane = laneOf(static_cast<std::uint64_t>(state.range(0)));
    util::Bytes out;
    for (auto _ : state) {
        util::Pieces pieces;
        lane.serialize(pieces);
        out.clear();
        pieces.appendTo(out);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * out.size()));
}

void deserialize(benchmark::State& state) {
    util::Pieces pieces;
    laneOf(static_cast<std::uint64_t>(state.range(0))).serialize(pieces);
    const auto data = std::make_shared<util::Bytes>();
    pieces.appendTo(*data);
    for (auto _ : state) {
        const auto lane = factory.create(featureSize);
        util::database::DatabaseReader reader(*data);
        lane->deserialize(reader, classCount, data);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * data->size()));
}

void clone(benchmark::State& state) {
    const LaneBase& lane = laneOf(static_cast<std::uint64_t>(state.range(0)));
    for (auto _ : state) {
        factory.clone(featureSize, lane);
    }
    const auto bytes = lane.end().record - lane.begin().record;
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * bytes);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(10'000)->Arg(1'000'000)->Arg(10'000'000);
}

BENCHMARK(lookupHit)->Apply(sizes);
BENCHMARK(lookupMiss)->Apply(sizes);
BENCHMARK(compact)
    ->Unit(benchmark::kMillisecond)
    ->Args({1'000'000, 100})
    ->Args({1'000'000, 100'000})
    ->Args({10'000'000, 100})
    ->Args({0, 1'000'000});
BENCHMARK(serialize)->Unit(benchmark::kMillisecond)->Arg(1'000'000)->Arg(10'000'000);
BENCHMARK(deserialize)->Unit(benchmark::kMillisecond)->Arg(1'000'000)->Arg(10'000'000);
BENCHMARK(clone)->Unit(benchmark::kMillisecond)->Arg(1'000'000)->Arg(10'000'000);

}  // namespace

BENCHMARK_MAIN();
