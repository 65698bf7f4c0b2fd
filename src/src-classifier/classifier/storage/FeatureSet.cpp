#include "classifier/storage/FeatureSet.h"

#include <algorithm>
#include <utility>

#include "classifier/ClassifierException.h"
#include "classifier/storage/LaneFactory.h"
#include "util/database/DatabaseReader.h"

namespace halvern::classifier::storage {

namespace {

// A classifier has few classes, and a scan of their names is dwarfed by the work on features.
template <class Classes>
auto findClass(Classes& classes, std::string_view name) {
    return std::find_if(classes.begin(), classes.end(),
                        [name](const ClassEntry& entry) { return entry.name == name; });
}

template <class Classes>
auto& requireClass(Classes& classes, std::string_view name) {
    const auto entry = findClass(classes, name);
    if (entry == classes.end()) {
        throw ClassifierException("Trying to get a nonexisting class with the name '" + std::string(name) +
                                  "'.");
    }
    return *entry;
}

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

FeatureSet::FeatureSet(const FeatureSet& other) : _classes(other._classes) {
    const VectorLaneFactory factory;
    _lanes.reserve(laneCount);
    for (std::size_t i = 0; i < laneCount; ++i) {
        _lanes.push_back(factory.clone(i, *other._lanes[i]));
    }
}

FeatureSet::~FeatureSet() = default;

void FeatureSet::swap(FeatureSet& other) noexcept {
    _classes.swap(other._classes);
    _lanes.swap(other._lanes);
    forgetClassNames();
    other.forgetClassNames();
}

std::shared_ptr<const ClassNames> FeatureSet::classNames() const {
    if (!_namesAreMade.load(std::memory_order_acquire)) {
        const std::lock_guard lock(_namesMutex);
        if (!_namesAreMade.load(std::memory_order_relaxed)) {
            std::vector<std::string> names;
            names.reserve(_classes.size());
            for (const ClassEntry& entry : _classes) {
                names.push_back(entry.name);
            }
            _names = std::make_shared<ClassNames>(std::move(names));
            _namesAreMade.store(true, std::memory_order_release);
        }
    }
    return _names;
}

void FeatureSet::forgetClassNames() noexcept {
    _namesAreMade.store(false, std::memory_order_relaxed);
    _names.reset();
}

bool FeatureSet::classExists(std::string_view name) const {
    return findClass(_classes, name) != _classes.end();
}

void FeatureSet::addClass(std::string_view name) {
    if (name.empty()) {
        throw ClassifierException("Trying to add a class with an empty name.");
    }
    if (classExists(name)) {
        throw ClassifierException("Trying to add an already existing class with the name '" +
                                  std::string(name) +
                                  "'. Use classExists to find out if a class already is added.");
    }
    if (_classes.size() >= maxClasses) {
        throw ClassifierException("Trying to add the class '" + std::string(name) +
                                  "' to a classifier that has " + std::to_string(maxClasses) +
                                  " classes, the most that it can hold. Remove a class first.");
    }
    _classes.push_back({std::string(name), static_cast<std::uint16_t>(_classes.size())});
    forgetClassNames();
}

void FeatureSet::removeClass(std::string_view name) {
    const auto entry = findClass(_classes, name);
    if (entry == _classes.end()) {
        throw ClassifierException("Trying to remove a nonexisting class with the name '" + std::string(name) +
                                  "'.");
    }
    for (const auto& lane : _lanes) {
        lane->removeClass(entry->_classIndex);
    }
    // The lanes have moved the records of the later classes down in the same way.
    for (auto moved = _classes.erase(entry); moved != _classes.end(); ++moved) {
        --moved->_classIndex;
    }
    forgetClassNames();
}

ClassEntry& FeatureSet::getClass(std::string_view name) { return requireClass(_classes, name); }

const ClassEntry& FeatureSet::getClass(std::string_view name) const { return requireClass(_classes, name); }

void FeatureSet::requireRoom(std::string_view className, std::uint64_t count) const {
    requireRoomIn(getClass(className), count);
}

void FeatureSet::add(std::string_view className, std::string_view feature, std::uint32_t count) {
    CHECK(feature.size() < _lanes.size(), "Add with feature bigger than max allowed size (32)");
    ClassEntry& entry = getClass(className);
    requireRoomIn(entry, count);
    if (_lanes[feature.size()]->add(feature, entry._classIndex, count)) {
        entry.addUnique();
    }
    entry.addCount(count);
}

// Totals are loaded on trust and may be smaller than the records say, so no more is taken off than there is.
void FeatureSet::sub(std::string_view className, std::string_view feature, std::uint32_t count) {
    CHECK(feature.size() < _lanes.size(), "Add with feature bigger than max allowed size (32)");
    ClassEntry& entry = getClass(className);
    std::uint32_t removed = 0;
    if (_lanes[feature.size()]->sub(feature, entry._classIndex, count, removed) && entry._unique > 0) {
        entry.removeUnique();
    }
    entry.removeCount(std::min(removed, entry._count));
}

void FeatureSet::compact() {
    for (const auto& lane : _lanes) {
        lane->compact();
    }
}

void FeatureSet::clear() {
    for (const auto& lane : _lanes) {
        lane->clear();
    }
    _classes.clear();
    forgetClassNames();
}

std::size_t FeatureSet::serializedSize() const {
    std::size_t size = sizeof(std::uint16_t);
    for (const ClassEntry& entry : _classes) {
        size += sizeof(std::uint32_t) + entry.name.size() + sizeof(entry._classIndex) + sizeof(entry._count) +
                sizeof(entry._unique);
    }
    for (const auto& lane : _lanes) {
        size += sizeof(std::uint32_t) + static_cast<std::size_t>(lane->end().record - lane->begin().record);
    }
    return size;
}

void FeatureSet::serialize(util::Bytes& out) const {
    // A big classifier leaves no memory for a buffer that grows by copying.
    out.reserve(out.size() + serializedSize());
    util::database::writePrimitive(out, static_cast<std::uint16_t>(_classes.size()));
    for (const ClassEntry& entry : _classes) {
        util::database::writeString(out, entry.name);
        util::database::writePrimitive(out, entry._classIndex);
        util::database::writePrimitive(out, entry._count);
        util::database::writePrimitive(out, entry._unique);
    }
    for (const auto& lane : _lanes) {
        lane->serialize(out);
    }
}

void FeatureSet::deserialize(util::database::DatabaseReader& reader) {
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
        for (const auto& lane : _lanes) {
            lane->deserialize(reader, classCount);
        }
        forgetClassNames();
    } catch (...) {
        clear();
        throw;
    }
}

}  // namespace halvern::classifier::storage
