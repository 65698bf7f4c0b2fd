#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

#include "classifier/storage/LaneBase.h"
#include "classifier/storage/RecordSort.h"

namespace halvern::classifier::storage {

// Features that have been added to a lane, and of which nobody has asked yet whether the lane has them.
//
// Most of what a text brings is only asked for by the next compaction, which needs it in order. To put it in
// a row here and to sort that once costs less than half of what it costs to search each feature where it is
// added.
template <std::size_t N>
class PendingRecords {
public:
    using Record = FeatureRecord<N>;

    bool empty() const { return _records.empty(); }
    // Of all counts. No record gets a greater one.
    std::uint64_t sum() const { return _sum; }

    // Throws std::bad_alloc and changes nothing then.
    void append(const FeatureCounts& features, std::uint16_t classIndex) {
        if (_records.size() >= _limit) {
            combine();
            _limit = std::max(FEWEST_TO_COMBINE, 2 * _records.size());
        }
        const std::size_t size = _records.size() + features.size;
        if (size > _records.capacity()) {
            _records.reserve(std::max(size, 2 * _records.capacity()));
        }
        for (std::size_t i = 0; i < features.size; ++i) {
            _records.push_back(Record(features.feature(i), classIndex, features.counts[i]));
        }
        _sum += sumOf(features);
    }
    // Undoes the last append.
    void takeBack(const FeatureCounts& features) noexcept {
        _records.resize(_records.size() - features.size);
        _sum -= sumOf(features);
    }

    // All that was added, in order and each key once.
    const std::vector<Record>& combined() {
        combine();
        return _records;
    }

    // Gives all memory back.
    void clear() noexcept { *this = PendingRecords(); }

    static std::uint64_t sumOf(const FeatureCounts& features) {
        return std::accumulate(features.counts, features.counts + features.size, std::uint64_t{0});
    }

private:
    // The same text learned over and over takes no more memory than some texts of this many features.
    static constexpr std::size_t FEWEST_TO_COMBINE = 32768;

    void combine() {
        sortRecords(_records);
        std::size_t kept = 0;
        for (const Record& record : _records) {
            if (kept > 0 && _records[kept - 1] == record) {
                _records[kept - 1].parameter.add(record.parameter.count());
            } else {
                _records[kept++] = record;
            }
        }
        _records.resize(kept);
    }

    std::vector<Record> _records;
    std::uint64_t _sum = 0;
    std::size_t _limit = FEWEST_TO_COMBINE;  // a row as long as this is combined before it grows
};

}  // namespace halvern::classifier::storage
