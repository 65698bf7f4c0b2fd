#include "classifier/storage/LaneFactory.h"

#include <array>
#include <utility>

#include "classifier/storage/VectorLane.h"

namespace halvern::classifier::storage {

namespace {

constexpr std::size_t laneCount = 32;

struct Maker {
    std::unique_ptr<LaneBase> (*create)();
    std::unique_ptr<LaneBase> (*clone)(const LaneBase& other);
};

template <std::size_t... N>
constexpr std::array<Maker, sizeof...(N)> makersOf(std::index_sequence<N...>) {
    return {Maker{[]() -> std::unique_ptr<LaneBase> { return std::make_unique<VectorLane<N>>(); },
                  [](const LaneBase& other) -> std::unique_ptr<LaneBase> {
                      return std::make_unique<VectorLane<N>>(dynamic_cast<const VectorLane<N>&>(other));
                  }}...};
}

constexpr auto makers = makersOf(std::make_index_sequence<laneCount>());

}  // namespace

std::unique_ptr<LaneBase> VectorLaneFactory::clone(std::size_t laneIndex, const LaneBase& other) const {
    return laneIndex < makers.size() ? makers[laneIndex].clone(other) : nullptr;
}

std::unique_ptr<LaneBase> VectorLaneFactory::create(std::size_t laneIndex) const {
    return laneIndex < makers.size() ? makers[laneIndex].create() : nullptr;
}

}  // namespace halvern::classifier::storage
