#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "classifier/storage/FeatureSet.h"

namespace halvern::morvane::client::files {

// One record as its numbers.
struct StoredRecord {
    std::string_view feature;
    std::uint16_t classIndex;
    std::uint32_t count;
};

// The records of one lane where they lie in the stored data, which must outlive this.
class LaneView {
public:
    // Bytes of a record behind its feature, and of the filler that stands for the empty feature.
    static constexpr std::size_t numbersSize = 6;
    static constexpr std::size_t strideOf(std::size_t featureSize) {
        return (featureSize == 0 ? 1 : featureSize) + numbersSize;
    }

    LaneView() = default;
    LaneView(const char* first, std::uint32_t size, std::size_t featureSize)
        : _first(first), _size(size), _featureSize(featureSize) {}

    std::uint32_t size() const { return _size; }
    std::size_t stride() const { return strideOf(_featureSize); }
    // Requires index < size().
    StoredRecord operator[](std::uint32_t index) const {
        const char* const record = bytes(index);
        const char* const numbers = record + stride() - numbersSize;
        StoredRecord result{{record, _featureSize}, 0, 0};
        std::memcpy(&result.classIndex, numbers, sizeof(result.classIndex));
        std::memcpy(&result.count, numbers + sizeof(result.classIndex), sizeof(result.count));
        return result;
    }
    const char* bytes(std::uint32_t index) const { return _first + index * stride(); }

private:
    const char* _first = nullptr;
    std::uint32_t _size = 0;
    std::size_t _featureSize = 0;
};

// What stands in data of version 5, without a copy of its records.
struct ClassifierView {
    std::uint32_t extractorVersion = 0;
    double smoothing = 0;
    std::vector<classifier::storage::ClassEntry> classes;
    std::array<LaneView, classifier::storage::FeatureSet::laneCount> lanes;

    std::uint64_t records() const {
        std::uint64_t sum = 0;
        for (const LaneView& lane : lanes) {
            sum += lane.size();
        }
        return sum;
    }
};

}  // namespace halvern::morvane::client::files
