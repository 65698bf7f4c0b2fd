#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "classifier/storage/FreshRecords.h"
#include "classifier/storage/LaneBase.h"
#include "classifier/storage/PendingRecords.h"
#include "classifier/storage/SharedRecords.h"
#include "classifier/storage/SparseIndex.h"
#include "classifier/storage/StorageTypes.h"

namespace halvern::classifier::storage {

// All records of the features that are N bytes long.
//
// They lie in one sorted, packed array, the only store that readers see. New records wait in a table until
// compact() merges both. Counts of known records change in place; a record of the array whose count falls to
// 0 keeps its place until then, and the same key coming back takes it again.
//
// An array that a copy of the lane shares doesn't change. A record of it whose count changes gets into the
// table as well, where it stands in front of the old one. Texts that are added to such a lane only wait in a
// row until somebody asks: the lane has to be made anew by its next compaction anyway.
template <std::size_t N>
class VectorLane final : public LaneBase {
public:
    VectorLane() = default;
    // A copy of a lane that isn't compact isn't either. The array has no slack.
    VectorLane(const VectorLane&) = default;
    VectorLane& operator=(const VectorLane&) = delete;

    bool isCompact() const {
        return _permaDeleted == 0 && _temporary.size() == _freshDeleted && _pending.empty();
    }

    bool operator==(const LaneBase& other) const override;
    bool operator==(const VectorLane& other) const;
    void removeClass(std::uint16_t classIndex) override;
    bool add(std::string_view feature, std::uint16_t classIndex, std::uint32_t count) override;
    bool sub(std::string_view feature, std::uint16_t classIndex, std::uint32_t count,
             std::uint32_t& removed) override;
    void reserve(std::size_t changes) override;
    std::uint32_t addAll(const FeatureCounts& features, std::uint16_t classIndex,
                         std::span<ClassEntry> classes) override;
    void takeBack(const FeatureCounts& features, std::uint16_t classIndex) noexcept override;
    void settle(std::span<ClassEntry> classes) override;
    bool compact(std::span<ClassEntry> classes) override;
    void makeOwn() override;
    void clear() override;
    std::uint32_t find(std::string_view feature, std::uint16_t classIndex) const override;
    ParameterAccessor& lookup(std::string_view feature, ParameterAccessor& accessor) const override;
    std::uint32_t totalCount() const override;
    std::uint32_t uniqueFeatures() const override;
    void serialize(util::Pieces& out) const override;
    void deserialize(util::database::DatabaseReader& reader, std::uint32_t classCount,
                     const std::shared_ptr<const void>& owner) override;
    LaneIterator begin() const override;
    LaneIterator end() const override;
    void lookupAll(const char* const* features, std::size_t count, FeatureRecords* found) const override;

private:
    using Record = FeatureRecord<N>;
    using Records = std::vector<Record>;

    static std::uint64_t firstWord(const char* feature);
    static void describe(const Record* records, std::size_t size, SparseIndex& index);
    static void askFor(const Record* first, std::size_t bytes);

    // Finds the first record of the block in which each feature has to be searched.
    template <std::size_t Count>
    void findBlocks(const char* const* features, const Record** places) const;
    // Moves each place to the first of so many records that below(record, index of the place) doesn't hold
    // for.
    template <std::size_t Count, class Below>
    static void halve(const Record* (&places)[Count], std::size_t size, const Below& below);
    // The same from the first record of a block on, however far.
    template <std::size_t Count, class Below>
    void searchBlocks(const Record* (&places)[Count], const Below& below) const;
    // Moves each place from the first record of its block to the first that isn't below the feature.
    template <std::size_t Count>
    void findInBlocks(const char* const* features, const Record** places) const;
    // The first record of _permanent that below doesn't hold for. Requires that it holds for all records of
    // lesser features, and for none of greater ones.
    template <class Below>
    const Record* lowerBound(const char* feature, const Below& below) const;
    const Record* findPermanent(const Record& key) const;
    // Moves each place from the first record of its block to the first that isn't below the key.
    template <std::size_t Count>
    void findKeysInBlocks(const Record* const* keys, const Record** places) const;
    // The first record of _permanent that isn't below it, for up to groupSize keys.
    void findPlaces(const Record* const* keys, std::size_t count, const Record** places) const;
    bool isAt(const Record* place, const Record& key) const {
        return place != _permanent.end() && *place == key;
    }
    // Where the count of a key is; both null for an unknown one.
    struct Target {
        std::uint32_t hash;
        Record* fresh;        // in _temporary
        const Record* known;  // in _permanent, only asked for if there is none in _temporary
    };
    Target targetOf(const Record& key);
    // The same for up to groupSize keys.
    void findTargets(const Record* keys, std::size_t count, Target* targets);
    // The record that is to be changed, made if need be from the one that is shared.
    Record& changeable(const Target& target);
    // The number of keys without a count that this one counts among, once it has none.
    std::size_t& deletedLike(const Target& target, const Record& key);
    // True if the key had no count. All that can throw comes before the first change.
    bool addTo(const Target& target, const Record& record);
    // What is looked for together when a text is added.
    static constexpr std::size_t groupSize = 32;
    FeatureRecords recordsFrom(const Record* first, const char* feature) const;
    // Copies records without the reserved places, and returns the end of the copy.
    Record* copyLiving(const Record* from, const Record* to, Record* out) const;
    // Leaves the lane compact. Requires that nothing of _temporary is needed any more, and that no record of
    // _permanent has a count of 0.
    void dropFresh();
    // Returns the largest count.
    static std::uint32_t requireSound(const Record* records, std::size_t size, std::uint32_t classCount);

    SharedRecords<Record> _permanent;  // sorted by key, capacity equal to size when compacted
    SparseIndex _index;                // of _permanent
    FreshRecords<Record> _temporary;   // new records, and those that stand in front of shared ones
    std::size_t _freshKnown = 0;       // records of _temporary that stand in front of one
    std::size_t _freshDeleted = 0;     // others of _temporary with a count of 0
    std::size_t _permaDeleted = 0;     // keys of _permanent that have come to a count of 0
    PendingRecords<N> _pending;        // to be added; as long as there are some, _temporary is empty
    std::uint32_t _largestCount = 0;   // no count of _permanent or _temporary is greater
};

// 32 lanes are the dearest thing to compile in this library; they are made once, in units of their own.
extern template class VectorLane<0>;
extern template class VectorLane<1>;
extern template class VectorLane<2>;
extern template class VectorLane<3>;
extern template class VectorLane<4>;
extern template class VectorLane<5>;
extern template class VectorLane<6>;
extern template class VectorLane<7>;
extern template class VectorLane<8>;
extern template class VectorLane<9>;
extern template class VectorLane<10>;
extern template class VectorLane<11>;
extern template class VectorLane<12>;
extern template class VectorLane<13>;
extern template class VectorLane<14>;
extern template class VectorLane<15>;
extern template class VectorLane<16>;
extern template class VectorLane<17>;
extern template class VectorLane<18>;
extern template class VectorLane<19>;
extern template class VectorLane<20>;
extern template class VectorLane<21>;
extern template class VectorLane<22>;
extern template class VectorLane<23>;
extern template class VectorLane<24>;
extern template class VectorLane<25>;
extern template class VectorLane<26>;
extern template class VectorLane<27>;
extern template class VectorLane<28>;
extern template class VectorLane<29>;
extern template class VectorLane<30>;
extern template class VectorLane<31>;

}  // namespace halvern::classifier::storage
