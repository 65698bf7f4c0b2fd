#pragma once

#include <cstddef>
#include <memory>

#include "classifier/storage/LaneBase.h"

namespace halvern::classifier::storage {

// Makes the lanes of a feature set.
class LaneFactory {
public:
    virtual ~LaneFactory() = default;

    // A deep copy of other. Throws std::bad_cast if other isn't the lane of that index.
    virtual std::unique_ptr<LaneBase> clone(std::size_t laneIndex, const LaneBase& other) const = 0;
    // A new empty lane for features of laneIndex bytes; null where there is no such lane.
    virtual std::unique_ptr<LaneBase> create(std::size_t laneIndex) const = 0;
};

// Lane N, from 0 to 31, is a VectorLane<N>.
class VectorLaneFactory final : public LaneFactory {
public:
    std::unique_ptr<LaneBase> clone(std::size_t laneIndex, const LaneBase& other) const override;
    std::unique_ptr<LaneBase> create(std::size_t laneIndex) const override;
};

}  // namespace halvern::classifier::storage
