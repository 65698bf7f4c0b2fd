#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

#include "classifier/ClassifierException.h"
#include "classifier/storage/VectorLane.h"
#include "util/Pieces.h"
#include "util/database/DatabaseReader.h"

// The lanes' operations, for the units that make the lanes.
namespace halvern::classifier::storage {

// Calls visit(size of the group, index of its first) for one group after the other. The compiler knows their
// sizes, so that the state of their searches stays in registers.
template <class Visit>
void forEachGroup(std::size_t count, const Visit& visit) {
    constexpr std::size_t LARGE = 4;
    std::size_t next = 0;
    for (; count - next >= LARGE; next += LARGE) {
        visit(std::integral_constant<std::size_t, LARGE>(), next);
    }
    for (; count - next >= 2; next += 2) {
        visit(std::integral_constant<std::size_t, 2>(), next);
    }
    if (next < count) {
        visit(std::integral_constant<std::size_t, 1>(), next);
    }
}

template <std::size_t N>
std::uint64_t VectorLane<N>::firstWord(const char* feature) {
    return N > 0 ? featureWord<N>(feature, 0) : 0;
}

template <std::size_t N>
void VectorLane<N>::describe(const Record* records, std::size_t size, SparseIndex& index) {
    index.update(size, [&](std::size_t i) { return firstWord(records[i].feature); });
}

// Asks for the lines of memory behind the first one of so many bytes. What a search costs is the wait for
// memory, and lines that turn out not to be needed cost less than one wait for one that is.
template <std::size_t N>
void VectorLane<N>::askFor(const Record* first, std::size_t bytes) {
    constexpr std::size_t LINE = 64;
    for (std::size_t offset = LINE; offset <= bytes; offset += LINE) {
        __builtin_prefetch(reinterpret_cast<const char*>(first) + offset);
    }
}

template <std::size_t N>
template <std::size_t Count>
void VectorLane<N>::findBlocks(const char* const* features, const Record** places) const {
    std::uint64_t words[Count];
    std::size_t begins[Count];
    for (std::size_t i = 0; i < Count; ++i) {
        words[i] = firstWord(features[i]);
    }
    _index.findBlocks(words, begins);
    for (std::size_t i = 0; i < Count; ++i) {
        places[i] = _permanent.data() + begins[i];
        askFor(places[i], _index.blockLength() * sizeof(Record));
    }
}

// Halves without a branch on the outcome, which nothing could predict: the compiler turns the choice into a
// conditional move. All searches take the same number of steps, as the outcome of a step changes only where
// the half begins, never how long it is. So they can take each step together, and their waits overlap.
template <std::size_t N>
template <std::size_t Count, class Below>
void VectorLane<N>::halve(const Record* (&places)[Count], std::size_t size, const Below& below) {
    for (; size > 1; size -= size / 2) {
        const std::size_t half = size / 2;
        for (std::size_t i = 0; i < Count; ++i) {
            places[i] = below(places[i][half - 1], i) ? places[i] + half : places[i];
        }
    }
    for (std::size_t i = 0; i < Count && size > 0; ++i) {
        places[i] += below(*places[i], i) ? 1 : 0;
    }
}

template <std::size_t N>
template <std::size_t Count, class Below>
void VectorLane<N>::searchBlocks(const Record* (&places)[Count], const Below& below) const {
    halve(places, _index.blockLength(), below);
    const Record* const end = _permanent.data() + _permanent.size();
    for (std::size_t i = 0; i < Count; ++i) {
        // Where all of the block was below, more records of the same first word may follow.
        if (places[i] != end && below(*places[i], i)) {
            const Record* rest[] = {places[i]};
            halve(rest, static_cast<std::size_t>(end - places[i]),
                  [&below, i](const Record& record, std::size_t) { return below(record, i); });
            places[i] = rest[0];
        }
    }
}

template <std::size_t N>
template <class Below>
const FeatureRecord<N>* VectorLane<N>::lowerBound(const char* feature, const Below& below) const {
    const Record* place[1];
    findBlocks<1>(&feature, place);
    searchBlocks(place, [&below](const Record& record, std::size_t) { return below(record); });
    return place[0];
}

template <std::size_t N>
const FeatureRecord<N>* VectorLane<N>::findPermanent(const Record& key) const {
    const Record* const hit = lowerBound(key.feature, [&key](const Record& record) { return record < key; });
    return hit != _permanent.data() + _permanent.size() && *hit == key ? hit : nullptr;
}

template <std::size_t N>
bool VectorLane<N>::operator==(const LaneBase& other) const {
    const VectorLane* const sameLength = dynamic_cast<const VectorLane*>(&other);
    return sameLength != nullptr && *this == *sameLength;
}

template <std::size_t N>
bool VectorLane<N>::operator==(const VectorLane& other) const {
    CHECK(isCompact(), "The lane has not been compacted since training");
    return std::equal(_permanent.begin(), _permanent.end(), other._permanent.begin(), other._permanent.end(),
                      [&other](const Record& left, const Record& right) {
                          const Record* const fresh =
                              other._temporary.find(right, other._temporary.hashOf(right));
                          const Record& now = fresh != nullptr ? *fresh : right;
                          return left == right && left.parameter.count() == now.parameter.count();
                      });
}

template <std::size_t N>
void VectorLane<N>::removeClass(std::uint16_t classIndex) {
    CHECK(isCompact(), "The lane has not been compacted since training");
    CHECK(!_permanent.isShared() || _permanent.empty(), "The lane shares its records with a copy");
    std::size_t kept = 0;
    for (const Record& record : _permanent) {
        if (record.parameter.classIndex() == classIndex) {
            continue;
        }
        Record& place = _permanent.changeable(_permanent.data()[kept++]);
        place = record;
        if (place.parameter.classIndex() > classIndex) {
            place.parameter.packClassIndex();
        }
    }
    _permanent.truncate(kept);
    // Records that came and went since the last compaction would keep their old class indexes.
    dropFresh();
    describe(_permanent.data(), kept, _index);
}

template <std::size_t N>
template <std::size_t Count>
void VectorLane<N>::findKeysInBlocks(const Record* const* keys, const Record** places) const {
    const Record* group[Count];
    std::copy_n(places, Count, group);
    searchBlocks(group, [keys](const Record& record, std::size_t i) { return record < *keys[i]; });
    std::copy_n(group, Count, places);
}

// What has changed once since the lane was compact is found in the table, which costs less than a search.
template <std::size_t N>
typename VectorLane<N>::Target VectorLane<N>::targetOf(const Record& key) {
    const std::uint32_t hash = _temporary.hashOf(key);
    Record* const fresh = _temporary.find(key, hash);
    return {hash, fresh, fresh == nullptr ? findPermanent(key) : nullptr};
}

template <std::size_t N>
FeatureRecord<N>& VectorLane<N>::changeable(const Target& target) {
    if (target.fresh != nullptr) {
        return *target.fresh;
    }
    if (!_permanent.isShared()) {
        return _permanent.changeable(*target.known);
    }
    Record& copy = _temporary.insert(*target.known, target.hash);
    ++_freshKnown;
    return copy;
}

template <std::size_t N>
std::size_t& VectorLane<N>::deletedLike(const Target& target, const Record& key) {
    const bool isKnown = target.known != nullptr || findPermanent(key) != nullptr;
    return isKnown ? _permaDeleted : _freshDeleted;
}

template <std::size_t N>
bool VectorLane<N>::addTo(const Target& target, const Record& record) {
    const Record* const held = target.fresh != nullptr ? target.fresh : target.known;
    const std::uint32_t count = record.parameter.count();
    if (held == nullptr) {
        _temporary.insert(record, target.hash);
        _largestCount = std::max(_largestCount, count);
        return true;
    }
    const std::uint32_t before = held->parameter.count();
    if (count > UINT32_MAX - before) {
        throw ClassifierException("Trying to train a feature into a class more than " +
                                  std::to_string(UINT32_MAX) +
                                  " times. This is the largest count of a feature.");
    }
    changeable(target).parameter.add(count);
    _largestCount = std::max(_largestCount, before + count);
    if (before == 0) {
        std::size_t& deleted = deletedLike(target, record);
        CHECK(deleted > 0, "Perma deleted is becomming zero.");
        --deleted;
    }
    return before == 0;
}

template <std::size_t N>
bool VectorLane<N>::add(std::string_view feature, std::uint16_t classIndex, std::uint32_t count) {
    CHECK(feature.size() == N, "A feature has other than lane size");
    CHECK(count > 0, "Trying to add zero or below feature count");
    CHECK(_pending.empty(), "The lane has not been settled since training");
    const Record record(feature, classIndex, count);
    return addTo(targetOf(record), record);
}

template <std::size_t N>
bool VectorLane<N>::sub(std::string_view feature, std::uint16_t classIndex, std::uint32_t count,
                        std::uint32_t& removed) {
    CHECK(feature.size() == N, "A feature has other than lane size");
    CHECK(count > 0, "Trying to sub zero or below feature count");
    CHECK(_pending.empty(), "The lane has not been settled since training");
    removed = 0;
    const Record key(feature, classIndex, 0);
    const Target target = targetOf(key);
    const Record* const held = target.fresh != nullptr ? target.fresh : target.known;
    if (held == nullptr || held->parameter.count() == 0) {
        return false;
    }
    Record& changed = changeable(target);
    removed = changed.parameter.sub(count);
    if (changed.parameter.count() > 0) {
        return false;
    }
    ++deletedLike(target, key);
    return true;
}

template <std::size_t N>
void VectorLane<N>::reserve(std::size_t changes) {
    _temporary.reserve(changes);
}

// A sum that could carry a count beyond 32 bits has to be refused at once, and what a class gains whose
// stored totals contradict each other counts towards its limit at once.
template <std::size_t N>
std::uint32_t VectorLane<N>::addAll(const FeatureCounts& features, std::uint16_t classIndex,
                                    std::span<ClassEntry> classes) {
    const bool hasRoom = _largestCount + _pending.sum() + PendingRecords<N>::sumOf(features) <= UINT32_MAX;
    const bool isUntouched = _temporary.empty() && _permaDeleted == 0;
    if (_permanent.isShared() && isUntouched && hasRoom &&
        classes[classIndex]._unique <= classes[classIndex]._count) {
        _pending.append(features, classIndex);
        return 0;
    }
    settle(classes);
    reserve(features.size);
    std::uint32_t added = 0;
    std::size_t done = 0;
    try {
        while (done < features.size) {
            Record records[groupSize];
            Target targets[groupSize];
            const std::size_t count = std::min(groupSize, features.size - done);
            for (std::size_t i = 0; i < count; ++i) {
                records[i] = Record(features.feature(done + i), classIndex, features.counts[done + i]);
            }
            findTargets(records, count, targets);
            for (std::size_t i = 0; i < count; ++i, ++done) {
                added += addTo(targets[i], records[i]) ? 1 : 0;
            }
        }
    } catch (...) {
        takeBack({N, features.features, features.counts, done}, classIndex);
        throw;
    }
    return added;
}

template <std::size_t N>
void VectorLane<N>::takeBack(const FeatureCounts& features, std::uint16_t classIndex) noexcept {
    if (!_pending.empty()) {
        _pending.takeBack(features);
        return;
    }
    for (std::size_t i = 0; i < features.size; ++i) {
        std::uint32_t removed = 0;
        sub(features.feature(i), classIndex, features.counts[i], removed);
    }
}

template <std::size_t N>
void VectorLane<N>::settle(std::span<ClassEntry> classes) {
    if (_pending.empty()) {
        return;
    }
    const Records& records = _pending.combined();
    reserve(records.size());
    for (std::size_t done = 0; done < records.size();) {
        Target targets[groupSize];
        const std::size_t count = std::min(groupSize, records.size() - done);
        findTargets(&records[done], count, targets);
        for (std::size_t i = 0; i < count; ++i, ++done) {
            if (addTo(targets[i], records[done])) {
                classes[records[done].parameter.classIndex()].addUnique();
            }
        }
    }
    _pending.clear();
}

template <std::size_t N>
void VectorLane<N>::findTargets(const Record* records, std::size_t count, Target* targets) {
    const Record* keys[groupSize]{};
    const Record* places[groupSize];
    std::size_t missing[groupSize];
    std::size_t size = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t hash = _temporary.hashOf(records[i]);
        targets[i] = {hash, _temporary.find(records[i], hash), nullptr};
        if (targets[i].fresh == nullptr) {
            missing[size] = i;
            keys[size++] = &records[i];
        }
    }
    findPlaces(keys, size, places);
    for (std::size_t i = 0; i < size; ++i) {
        targets[missing[i]].known = isAt(places[i], *keys[i]) ? places[i] : nullptr;
    }
}

template <std::size_t N>
void VectorLane<N>::findPlaces(const Record* const* keys, std::size_t count, const Record** places) const {
    if (_permanent.empty()) {
        std::fill_n(places, count, _permanent.end());
        return;
    }
    const char* features[groupSize];
    for (std::size_t i = 0; i < count; ++i) {
        features[i] = keys[i]->feature;
    }
    forEachGroup(count, [&](auto group, std::size_t next) {
        findBlocks<decltype(group)::value>(features + next, places + next);
    });
    forEachGroup(count, [&](auto group, std::size_t next) {
        findKeysInBlocks<decltype(group)::value>(keys + next, places + next);
    });
}

template <std::size_t N>
FeatureRecord<N>* VectorLane<N>::copyLiving(const Record* from, const Record* to, Record* out) const {
    if (_permaDeleted == 0) {
        return std::copy(from, to, out);
    }
    return std::copy_if(from, to, out, [](const Record& record) { return record.parameter.count() != 0; });
}

// Only what is new is sorted; it then joins the others, which already are. All allocation comes before the
// first change.
template <std::size_t N>
bool VectorLane<N>::compact(std::span<ClassEntry> classes) {
    const bool isChanged = !isCompact();
    if (isChanged) {
        const bool isAddition = !_pending.empty();
        Records sorted;
        if (!isAddition) {
            sorted = _temporary.records();
            sortRecords(sorted);
        }
        const Records& changes = isAddition ? _pending.combined() : sorted;
        std::vector<const Record*> places(changes.size());
        std::size_t newSize = _permanent.size() - _permaDeleted;
        for (std::size_t done = 0; done < changes.size(); done += groupSize) {
            const Record* keys[groupSize]{};
            const std::size_t count = std::min(groupSize, changes.size() - done);
            for (std::size_t i = 0; i < count; ++i) {
                keys[i] = &changes[done + i];
            }
            findPlaces(keys, count, &places[done]);
            for (std::size_t i = 0; i < count; ++i) {
                const bool isNew = keys[i]->parameter.count() != 0 && !isAt(places[done + i], *keys[i]);
                newSize += isNew ? 1 : 0;
            }
        }
        const auto merged = SharedRecords<Record>::unsetRecords(newSize);
        SparseIndex index;
        index.update(newSize, [](std::size_t) { return std::uint64_t{0}; });
        const Record* old = _permanent.begin();
        Record* out = merged.get();
        for (std::size_t i = 0; i < changes.size(); ++i) {
            Record record = changes[i];
            out = copyLiving(old, places[i], out);
            old = places[i];
            if (isAt(old, record)) {
                record.parameter.add(isAddition ? old->parameter.count() : 0);
                ++old;
            } else if (isAddition) {
                classes[record.parameter.classIndex()].addUnique();
            }
            if (record.parameter.count() != 0) {
                *out++ = record;
            }
            _largestCount = std::max(_largestCount, record.parameter.count());
        }
        out = copyLiving(old, _permanent.end(), out);
        CHECK(out == merged.get() + newSize, "Unexpected size on new feature vector.");
        describe(merged.get(), newSize, index);
        _permanent = SharedRecords<Record>(merged, newSize);
        _index.swap(index);
    }
    dropFresh();
    return isChanged;
}

template <std::size_t N>
void VectorLane<N>::dropFresh() {
    _temporary.clear();
    _pending.clear();
    _freshKnown = 0;
    _freshDeleted = 0;
    _permaDeleted = 0;
}

template <std::size_t N>
void VectorLane<N>::makeOwn() {
    _permanent.makeOwn();
}

template <std::size_t N>
void VectorLane<N>::clear() {
    _permanent = {};
    SparseIndex().swap(_index);
    dropFresh();
    _largestCount = 0;
}

template <std::size_t N>
std::uint32_t VectorLane<N>::find(std::string_view feature, std::uint16_t classIndex) const {
    CHECK(feature.size() == N, "A feature has other than lane size");
    CHECK(isCompact(), "The lane has not been compacted since training");
    const Record* const hit = findPermanent(Record(feature, classIndex, 0));
    return hit != nullptr ? hit->parameter.count() : 0;
}

template <std::size_t N>
ParameterAccessor& VectorLane<N>::lookup(std::string_view feature, ParameterAccessor& accessor) const {
    CHECK(feature.size() == N, "A feature has other than lane size");
    CHECK(isCompact(), "The lane has not been compacted since training");
    accessor.reset();
    const char* const bytes = feature.data();
    const Record* record = lowerBound(
        bytes, [bytes](const Record& candidate) { return isFeatureBelow<N>(candidate.feature, bytes); });
    const Record* const end = _permanent.data() + _permanent.size();
    if (record == end || !isSameFeature<N>(record->feature, bytes)) {
        return accessor;
    }
    accessor.setFeaturePtr(record->feature);
    do {
        accessor.add(record->parameter);
        ++record;
    } while (record != end && isSameFeature<N>(record->feature, bytes));
    return accessor;
}

template <std::size_t N>
void VectorLane<N>::lookupAll(const char* const* features, std::size_t count, FeatureRecords* found) const {
    constexpr std::size_t BATCH = 32;     // as much as memory can be asked for at once
    constexpr std::size_t FURTHER = 192;  // bytes of a feature's records, which may go on behind the block
    CHECK(isCompact(), "The lane has not been compacted since training");
    if (_permanent.empty()) {
        std::fill_n(found, count, FeatureRecords{});
        return;
    }
    for (std::size_t first = 0; first < count; first += BATCH) {
        const std::size_t size = std::min(BATCH, count - first);
        const char* const* const batch = features + first;
        const Record* places[BATCH];
        forEachGroup(size, [&](auto group, std::size_t next) {
            findBlocks<decltype(group)::value>(batch + next, places + next);
        });
        forEachGroup(size, [&](auto group, std::size_t next) {
            findInBlocks<decltype(group)::value>(batch + next, places + next);
            for (std::size_t i = 0; i < decltype(group)::value; ++i) {
                askFor(places[next + i], FURTHER);
            }
        });
        for (std::size_t i = 0; i < size; ++i) {
            found[first + i] = recordsFrom(places[i], batch[i]);
        }
    }
}

template <std::size_t N>
template <std::size_t Count>
void VectorLane<N>::findInBlocks(const char* const* features, const Record** places) const {
    const Record* group[Count];
    std::uint64_t words[Count];
    for (std::size_t i = 0; i < Count; ++i) {
        group[i] = places[i];
        words[i] = firstWord(features[i]);
    }
    searchBlocks(group, [&](const Record& record, std::size_t i) {
        const std::uint64_t word = firstWord(record.feature);
        constexpr std::size_t wordSize = sizeof(word);
        if constexpr (N <= wordSize) {
            return word < words[i];
        } else {
            return word < words[i] || (word == words[i] && isFeatureBelow<N>(record.feature, features[i]));
        }
    });
    std::copy_n(group, Count, places);
}

template <std::size_t N>
FeatureRecords VectorLane<N>::recordsFrom(const Record* first, const char* feature) const {
    const Record* const end = _permanent.data() + _permanent.size();
    const Record* next = first;
    while (next != end && isSameFeature<N>(next->feature, feature)) {
        ++next;
    }
    if (next == first) {
        return {};
    }
    return {first->feature, static_cast<std::uint32_t>(next - first), sizeof(Record)};
}

template <std::size_t N>
std::uint32_t VectorLane<N>::totalCount() const {
    CHECK(isCompact(), "The lane has not been compacted since training");
    std::uint32_t total = 0;
    for (const Record& record : _permanent) {
        total += record.parameter.count();
    }
    return total;
}

template <std::size_t N>
std::uint32_t VectorLane<N>::uniqueFeatures() const {
    CHECK(isCompact(), "The lane has not been compacted since training");
    std::uint32_t features = 0;
    const Record* previous = nullptr;
    for (const Record& record : _permanent) {
        if (previous == nullptr || !isSameFeature<N>(previous->feature, record.feature)) {
            ++features;
        }
        previous = &record;
    }
    return features;
}

template <std::size_t N>
void VectorLane<N>::serialize(util::Pieces& out) const {
    CHECK(isCompact(), "The lane has not been compacted since training");
    util::Bytes count;
    util::database::writePrimitive(count, static_cast<std::uint32_t>(_permanent.size()));
    out.add(std::move(count));
    out.addView({reinterpret_cast<const char*>(_permanent.data()), _permanent.size() * sizeof(Record)});
}

template <std::size_t N>
void VectorLane<N>::deserialize(util::database::DatabaseReader& reader, std::uint32_t classCount,
                                const std::shared_ptr<const void>& owner) {
    clear();
    const std::uint32_t count = reader.getNextPrimitive<std::uint32_t>();
    const Record* const records = reader.getNextRecords<Record>(count);
    _largestCount = requireSound(records, count, classCount);
    if (count == 0) {
        return;
    }
    SharedRecords<Record> read(owner, records, count);
    if (owner == nullptr) {
        read.makeOwn();
    }
    describe(records, count, _index);
    _permanent = std::move(read);
}

// A lane that breaks one of these would fail a check in the midst of a later request, and end the process
// with it. Nearly every lane is sound, so first all records are asked without a branch.
template <std::size_t N>
std::uint32_t VectorLane<N>::requireSound(const Record* records, std::size_t size, std::uint32_t classCount) {
    using util::database::DatabaseReaderException;
    std::uint32_t faults = 0;
    std::uint32_t largest = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const Parameter& parameter = records[i].parameter;
        faults |= i > 0 && !(records[i - 1] < records[i]) ? 1 : 0;
        faults |= parameter.classIndex() >= classCount ? 1 : 0;
        faults |= parameter.count() == 0 ? 1 : 0;
        largest = std::max(largest, parameter.count());
    }
    for (std::size_t i = 0; faults != 0 && i < size; ++i) {
        if (i > 0 && !(records[i - 1] < records[i])) {
            throw DatabaseReaderException("The database is corrupt, the records of a lane are not in order.");
        }
        if (records[i].parameter.classIndex() >= classCount) {
            throw DatabaseReaderException(
                "The database is corrupt, a record is of a class that does not exist.");
        }
        if (records[i].parameter.count() == 0) {
            throw DatabaseReaderException("The database is corrupt, a record has a count of 0.");
        }
    }
    return largest;
}

template <std::size_t N>
LaneIterator VectorLane<N>::begin() const {
    CHECK(isCompact(), "The lane has not been compacted since training");
    const Record* const first = _permanent.empty() ? nullptr : _permanent.data();
    return {reinterpret_cast<const char*>(first), sizeof(Record), N};
}

template <std::size_t N>
LaneIterator VectorLane<N>::end() const {
    CHECK(isCompact(), "The lane has not been compacted since training");
    const Record* const last = _permanent.empty() ? nullptr : _permanent.data() + _permanent.size();
    return {reinterpret_cast<const char*>(last), sizeof(Record), N};
}

}  // namespace halvern::classifier::storage
