#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "classifier/ClassNames.h"
#include "classifier/OnDemand.h"
#include "classifier/storage/LaneBase.h"
#include "classifier/storage/StorageTypes.h"

namespace util {
class Pieces;
}
namespace util::database {
class DatabaseReader;
}

namespace halvern::classifier::storage {

// Everything that a classifier has learned: the class table, and one lane for each length of a feature.
//
// It has no locks. Between add or sub and the lanes' compact() it must not be read, serialised or have a
// class removed.
class FeatureSet {
public:
    // A feature is shorter than this.
    static constexpr std::size_t laneCount = 32;
    // The class count is stored in 16 bits.
    static constexpr std::size_t maxClasses = 65535;

    FeatureSet();
    // A copy of its own, in the same state of compaction. What neither of both changes takes memory only
    // once.
    FeatureSet(const FeatureSet& other);
    FeatureSet& operator=(const FeatureSet&) = delete;
    ~FeatureSet();

    void swap(FeatureSet& other) noexcept;

    bool classExists(std::string_view name) const;
    // Throws ClassifierException for a name that is empty or taken, and when the table is full.
    void addClass(std::string_view name);
    // Throws ClassifierException for an unknown name, or std::bad_alloc, and changes nothing then. The lanes
    // must be compact.
    void removeClass(std::string_view name);
    // Throws ClassifierException for an unknown name.
    ClassEntry& getClass(std::string_view name);
    const ClassEntry& getClass(std::string_view name) const;

    // Requires count > 0 and a feature shorter than laneCount. Changes nothing when it throws:
    // ClassifierException for an unknown class or a count that would not fit, or std::bad_alloc.
    void add(std::string_view className, std::string_view feature, std::uint32_t count);
    // Takes off up to what the class holds of the feature. Requires and throws as add does.
    void sub(std::string_view className, std::string_view feature, std::uint32_t count);
    // The features of a text, by their lengths, with a sum of counts below 2^64. They are added, or taken
    // off, as a whole or not at all, and cheaper than one by one. Throws as add and sub do.
    void addAll(std::string_view className, std::span<const FeatureCounts> groups);
    void subAll(std::string_view className, std::span<const FeatureCounts> groups);
    // Folds what was trained into all lanes. Throws std::bad_alloc; nothing learned is lost then.
    void compact();
    void clear();

    // Appends the class table and the lanes, which must be compact, and stay as they are for as long as the
    // pieces are used.
    void serialize(util::Pieces& out) const;
    // Replaces the content. Throws DatabaseReaderException for data that is cut off or contradicts itself,
    // and std::bad_alloc; the content is then undefined until clear(). With an owner, which keeps the bytes
    // behind the reader as they are, the records are used where they lie.
    void deserialize(util::database::DatabaseReader& reader,
                     const std::shared_ptr<const void>& owner = nullptr);

    // What is unique to a class may be counted later than it is added: only settle() and compact() bring that
    // number up to date. settle() throws std::bad_alloc; nothing learned is lost then.
    bool isSettled() const { return _isSettled; }
    void settle();
    const std::vector<ClassEntry>& classes() const { return _classes; }
    // What depends on the class names alone. Made when it is first asked for after they changed; any number
    // of threads may ask at once.
    std::shared_ptr<const ClassNames> classNames() const;
    // Requires index < laneCount.
    LaneBase& lane(std::size_t index) { return *_lanes[index]; }
    const LaneBase& lane(std::size_t index) const { return *_lanes[index]; }

private:
    // Where the first class of that name stands in _byName, or would stand.
    std::size_t rankOf(std::string_view name) const;
    bool hasRank(std::string_view name, std::size_t rank) const;
    void sub(ClassEntry& entry, std::string_view feature, std::uint32_t count);

    std::vector<ClassEntry> _classes;               // in class index order
    std::vector<std::uint16_t> _byName;             // their places, by names, since there may be 65535
    std::vector<std::unique_ptr<LaneBase>> _lanes;  // always laneCount of them, by feature length
    bool _isSettled = true;                         // all of the class table is up to date
    bool _liesInData = false;                       // lanes may lie in the bytes that were deserialised
    OnDemand<std::shared_ptr<const ClassNames>> _names;
};

}  // namespace halvern::classifier::storage
