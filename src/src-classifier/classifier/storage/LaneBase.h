#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "classifier/storage/StorageTypes.h"

namespace util {
class Pieces;
}
namespace util::database {
class DatabaseReader;
}

namespace halvern::classifier::storage {

// The records of a compact lane as plain bytes, from begin() to end().
struct LaneIterator {
    const char* record;         // the first record, or one past the last; null for an empty lane
    std::uint64_t stride;       // bytes of a record
    std::uint64_t featureSize;  // bytes of a feature, at the front of its record
};

// Features of one length with their counts. The features must not be equal to each other.
struct FeatureCounts {
    std::size_t length;           // of each feature, in bytes
    const char* const* features;  // size of them
    const std::uint32_t* counts;  // one for each feature, above 0
    std::size_t size;

    std::string_view feature(std::size_t i) const { return {features[i], length}; }
};

// All records of the features of one length, for a caller that doesn't know the length.
//
// add and sub leave behind what only compact() folds in. The operations that say so require a lane that is
// compact: new, loaded, or compacted since it last changed. addAll may put off even to find out which
// features are new; the operations that say so require a lane that is settled, which it is once settle() or
// compact() has followed the last addAll. Those that are const may run in any number of threads at once; all
// others need the lane to themselves.
class LaneBase {
public:
    virtual ~LaneBase() = default;

    // Same feature length, same records, same counts. This lane must be compact, the other settled; new
    // records that wait for a compaction of the other don't count.
    virtual bool operator==(const LaneBase& other) const = 0;
    // Drops the records of the class and moves all classes behind it down by one. Must be compact, and must
    // not share its records with a copy (see makeOwn); allocates nothing.
    virtual void removeClass(std::uint16_t classIndex) = 0;
    // Returns true if the class did not have this feature. Requires count > 0, and a settled lane. Changes
    // nothing when it throws: std::bad_alloc, or ClassifierException if the record's count would not fit in
    // 32 bits.
    virtual bool add(std::string_view feature, std::uint16_t classIndex, std::uint32_t count) = 0;
    // Takes off as much as there is, tells how much in removed, and returns true if that was the last of it.
    // Throws std::bad_alloc and changes nothing then. Needs no memory behind reserve(), or behind an add() of
    // the same feature and class since the lane was last compact. Must be settled.
    virtual bool sub(std::string_view feature, std::uint16_t classIndex, std::uint32_t count,
                     std::uint32_t& removed) = 0;
    // Makes room for changes of so many features. Throws std::bad_alloc and changes nothing then.
    virtual void reserve(std::size_t changes) = 0;
    // Adds them all to the class, and returns how many of them are known to be new to it by now. What is
    // found out later goes to the class table, here as in the two operations below. Cheaper than as many
    // calls of add. Changes nothing when it throws what add throws.
    virtual std::uint32_t addAll(const FeatureCounts& features, std::uint16_t classIndex,
                                 std::span<ClassEntry> classes) = 0;
    // Undoes the addAll that was the last change of the lane. Needs no memory.
    virtual void takeBack(const FeatureCounts& features, std::uint16_t classIndex) noexcept = 0;
    // Finds out what was put off. Throws std::bad_alloc and changes nothing then.
    virtual void settle(std::span<ClassEntry> classes) = 0;
    // Costs nothing on a compact lane; returns true if this wasn't one. Throws std::bad_alloc and leaves the
    // lane as it was.
    virtual bool compact(std::span<ClassEntry> classes) = 0;
    // Ends the sharing of records, by a copy if need be. Throws std::bad_alloc and changes nothing then.
    virtual void makeOwn() = 0;
    // Gives all memory back.
    virtual void clear() = 0;
    // The record's count, or 0 without such a record. Must be compact.
    virtual std::uint32_t find(std::string_view feature, std::uint16_t classIndex) const = 0;
    // Fills the accessor with the feature's counts in all classes, and returns it. The accessor points into
    // the lane, and is good until the lane next changes. Must be compact.
    virtual ParameterAccessor& lookup(std::string_view feature, ParameterAccessor& accessor) const = 0;
    // Sum of all counts, modulo 2^32. Must be compact.
    virtual std::uint32_t totalCount() const = 0;
    // Number of features, each counted once whatever the number of its classes. Must be compact.
    virtual std::uint32_t uniqueFeatures() const = 0;
    // Appends the number of records and their bytes, which stay where they are. Must be compact, and stay as
    // it is for as long as the pieces are used.
    virtual void serialize(util::Pieces& out) const = 0;
    // Replaces the content. Throws DatabaseReaderException if the data is cut off, or if its records are not
    // strictly in order, name a class at or beyond classCount, or have a count of 0; and std::bad_alloc. The
    // lane is empty then. The lane's records stay where they lie if an owner is given, which keeps the bytes
    // behind the reader as they are; otherwise they are copied.
    virtual void deserialize(util::database::DatabaseReader& reader, std::uint32_t classCount,
                             const std::shared_ptr<const void>& owner) = 0;
    // Must be compact.
    virtual LaneIterator begin() const = 0;
    virtual LaneIterator end() const = 0;
    // Finds the records of so many features, each of the lane's length, which need not be different ones.
    // Must be compact. Cheaper than as many calls of lookup, since the searches wait for memory together.
    virtual void lookupAll(const char* const* features, std::size_t count, FeatureRecords* found) const = 0;
};

}  // namespace halvern::classifier::storage
