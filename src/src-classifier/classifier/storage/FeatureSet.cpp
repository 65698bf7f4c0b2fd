#include "classifier/storage/FeatureSet.h"

#include <algorithm>
#include <numeric>
#include <tuple>
#include <utility>

#include "classifier/ClassifierException.h"
#include "classifier/storage/LaneFactory.h"
#include "util/Pieces.h"
#include "util/database/DatabaseReader.h"

namespace halvern::classifier::storage {

namespace {

// Of the two totals the one that stored data made the greater decides, for so many occurrences may be as many
// new features.
void requireRoomIn(const ClassEntry& entry, std::uint64_t count) {
    if (count > UINT32_MAX - std::max(entry._count, entry._unique)) {
        throw ClassifierException("Trying to train the class '" + entry.name + "' beyond a total count of " +
                                  std::to_string(UINT32_MAX) +
                                  ", the largest that a class can hold. Untrain texts or add another class.");
    }
}

}  // namespace

FeatureSet::FeatureSet() {
    const VectorLaneFactory factory;
    _lanes.reserve(laneCount);
    for (std::size_t i = 0; i < laneCount; ++i) {
        _lanes.push_back(factory.create(i));
    }
}

FeatureSet::FeatureSet(const FeatureSet& other)
    : _classes(other._classes),
      _byName(other._byName),
      _isSettled(other._isSettled),
      _liesInData(other._liesInData) {
    const VectorLaneFactory factory;
    _lanes.reserve(laneCount);
    for (std::size_t i = 0; i < laneCount; ++i) {
        _lanes.push_back(factory.clone(i, *other._lanes[i]));
    }
}

FeatureSet::~FeatureSet() = default;

void FeatureSet::swap(FeatureSet& other) noexcept {
    _classes.swap(other._classes);
    _byName.swap(other._byName);
    _lanes.swap(other._lanes);
    std::swap(_isSettled, other._isSettled);
    std::swap(_liesInData, other._liesInData);
    _names.forget();
    other._names.forget();
}

std::shared_ptr<const ClassNames> FeatureSet::classNames() const {
    return _names.get([this] {
        std::vector<std::string> names;
        names.reserve(_classes.size());
        for (const ClassEntry& entry : _classes) {
            names.push_back(entry.name);
        }
        return std::make_shared<const ClassNames>(std::move(names));
    });
}

std::size_t FeatureSet::rankOf(std::string_view name) const {
    const auto rank = std::lower_bound(
        _byName.begin(), _byName.end(), name,
        [this](std::uint16_t place, std::string_view wanted) { return _classes[place].name < wanted; });
    return static_cast<std::size_t>(rank - _byName.begin());
}

bool FeatureSet::hasRank(std::string_view name, std::size_t rank) const {
    return rank < _byName.size() && _classes[_byName[rank]].name == name;
}

bool FeatureSet::classExists(std::string_view name) const { return hasRank(name, rankOf(name)); }

void FeatureSet::addClass(std::string_view name) {
    if (name.empty()) {
        throw ClassifierException("Trying to add a class with an empty name.");
    }
    const std::size_t rank = rankOf(name);
    if (hasRank(name, rank)) {
        throw ClassifierException("Trying to add an already existing class with the name '" +
                                  std::string(name) +
                                  "'. Use classExists to find out if a class already is added.");
    }
    if (_classes.size() >= maxClasses) {
        throw ClassifierException("Trying to add the class '" + std::string(name) +
                                  "' to a classifier that has " + std::to_string(maxClasses) +
                                  " classes, the most that it can hold. Remove a class first.");
    }
    const auto place = static_cast<std::uint16_t>(_classes.size());
    _classes.push_back({std::string(name), place});
    try {
        _byName.insert(_byName.begin() + static_cast<std::ptrdiff_t>(rank), place);
    } catch (...) {
        _classes.pop_back();
        throw;
    }
    _names.forget();
}

void FeatureSet::removeClass(std::string_view name) {
    const std::size_t rank = rankOf(name);
    if (!hasRank(name, rank)) {
        throw ClassifierException("Trying to remove a nonexisting class with the name '" + std::string(name) +
                                  "'.");
    }
    for (const auto& lane : _lanes) {
        lane->makeOwn();
    }
    _liesInData = false;
    const std::uint16_t removed = _byName[rank];
    for (const auto& lane : _lanes) {
        lane->removeClass(removed);
    }
    // The lanes have moved the records of the later classes down in the same way.
    for (auto moved = _classes.erase(_classes.begin() + removed); moved != _classes.end(); ++moved) {
        --moved->_classIndex;
    }
    _byName.erase(_byName.begin() + static_cast<std::ptrdiff_t>(rank));
    for (std::uint16_t& place : _byName) {
        place = static_cast<std::uint16_t>(place - (place > removed ? 1 : 0));
    }
    _names.forget();
}

ClassEntry& FeatureSet::getClass(std::string_view name) {
    return const_cast<ClassEntry&>(std::as_const(*this).getClass(name));
}

const ClassEntry& FeatureSet::getClass(std::string_view name) const {
    const std::size_t rank = rankOf(name);
    if (!hasRank(name, rank)) {
        throw ClassifierException("Trying to get a nonexisting class with the name '" + std::string(name) +
                                  "'.");
    }
    return _classes[_byName[rank]];
}

void FeatureSet::add(std::string_view className, std::string_view feature, std::uint32_t count) {
    CHECK(feature.size() < _lanes.size(), "Add with feature bigger than max allowed size (32)");
    ClassEntry& entry = getClass(className);
    requireRoomIn(entry, count);
    settle();
    if (_lanes[feature.size()]->add(feature, entry._classIndex, count)) {
        entry.addUnique();
    }
    entry.addCount(count);
}

void FeatureSet::sub(std::string_view className, std::string_view feature, std::uint32_t count) {
    CHECK(feature.size() < _lanes.size(), "Add with feature bigger than max allowed size (32)");
    ClassEntry& entry = getClass(className);
    settle();
    sub(entry, feature, count);
}

// Totals are loaded on trust and may be smaller than the records say, so no more is taken off than there is.
void FeatureSet::sub(ClassEntry& entry, std::string_view feature, std::uint32_t count) {
    std::uint32_t removed = 0;
    if (_lanes[feature.size()]->sub(feature, entry._classIndex, count, removed) && entry._unique > 0) {
        entry.removeUnique();
    }
    entry.removeCount(std::min(removed, entry._count));
}

void FeatureSet::addAll(std::string_view className, std::span<const FeatureCounts> groups) {
    ClassEntry& entry = getClass(className);
    std::uint64_t sum = 0;
    for (const FeatureCounts& group : groups) {
        CHECK(group.length < _lanes.size(), "Add with feature bigger than max allowed size (32)");
        sum = std::accumulate(group.counts, group.counts + group.size, sum);
    }
    requireRoomIn(entry, sum);
    _isSettled = false;
    std::uint32_t unique = 0;
    std::size_t done = 0;
    try {
        for (; done < groups.size(); ++done) {
            unique += _lanes[groups[done].length]->addAll(groups[done], entry._classIndex, _classes);
        }
    } catch (...) {
        for (const FeatureCounts& group : groups.first(done)) {
            _lanes[group.length]->takeBack(group, entry._classIndex);
        }
        throw;
    }
    entry._unique += unique;
    entry.addCount(static_cast<std::uint32_t>(sum));
}

void FeatureSet::subAll(std::string_view className, std::span<const FeatureCounts> groups) {
    ClassEntry& entry = getClass(className);
    settle();
    for (const FeatureCounts& group : groups) {
        CHECK(group.length < _lanes.size(), "Add with feature bigger than max allowed size (32)");
        _lanes[group.length]->reserve(group.size);
    }
    for (const FeatureCounts& group : groups) {
        for (std::size_t i = 0; i < group.size; ++i) {
            sub(entry, {group.features[i], group.length}, group.counts[i]);
        }
    }
}

void FeatureSet::settle() {
    if (_isSettled) {
        return;
    }
    for (const auto& lane : _lanes) {
        lane->settle(_classes);
    }
    _isSettled = true;
}

void FeatureSet::compact() {
    bool isChanged = false;
    for (const auto& lane : _lanes) {
        isChanged |= lane->compact(_classes);
    }
    _isSettled = true;
    // The bytes that were deserialised stay in memory whole as long as one lane lies in them.
    if (isChanged && _liesInData) {
        for (const auto& lane : _lanes) {
            lane->makeOwn();
        }
        _liesInData = false;
    }
}

void FeatureSet::clear() {
    for (const auto& lane : _lanes) {
        lane->clear();
    }
    _classes.clear();
    _byName.clear();
    _isSettled = true;
    _liesInData = false;
    _names.forget();
}

void FeatureSet::serialize(util::Pieces& out) const {
    util::Bytes table;
    util::database::writePrimitive(table, static_cast<std::uint16_t>(_classes.size()));
    for (const ClassEntry& entry : _classes) {
        util::database::writeString(table, entry.name);
        util::database::writePrimitive(table, entry._classIndex);
        util::database::writePrimitive(table, entry._count);
        util::database::writePrimitive(table, entry._unique);
    }
    out.add(std::move(table));
    for (const auto& lane : _lanes) {
        lane->serialize(out);
    }
}

void FeatureSet::deserialize(util::database::DatabaseReader& reader,
                             const std::shared_ptr<const void>& owner) {
    clear();
    try {
        const std::uint16_t classCount = reader.getNextPrimitive<std::uint16_t>();
        for (std::uint32_t row = 0; row < classCount; ++row) {
            ClassEntry entry;
            reader.getNextString(entry.name);
            entry._classIndex = reader.getNextPrimitive<std::uint16_t>();
            entry._count = reader.getNextPrimitive<std::uint32_t>();
            entry._unique = reader.getNextPrimitive<std::uint32_t>();
            if (entry._classIndex != row) {
                throw util::database::DatabaseReaderException(
                    "The database is corrupt, the index of a class is not its place in the class table.");
            }
            _classes.push_back(std::move(entry));
        }
        _byName.resize(_classes.size());
        std::iota(_byName.begin(), _byName.end(), std::uint16_t{0});
        std::sort(_byName.begin(), _byName.end(), [this](std::uint16_t left, std::uint16_t right) {
            return std::tie(_classes[left].name, left) < std::tie(_classes[right].name, right);
        });
        for (const auto& lane : _lanes) {
            lane->deserialize(reader, classCount, owner);
        }
        _liesInData = owner != nullptr;
        _names.forget();
    } catch (...) {
        clear();
        throw;
    }
}

}  // namespace halvern::classifier::storage
