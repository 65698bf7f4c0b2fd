#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <utility>

#include "classifier/ClassifierException.h"
#include "classifier/storage/VectorLane.h"
#include "util/database/DatabaseReader.h"

// The lanes' operations, for the units that make the lanes.
namespace halvern::classifier::storage {

template <std::size_t N>
std::uint64_t VectorLane<N>::firstWord(const char* feature) {
    return N > 0 ? featureWord<N>(feature, 0) : 0;
}

template <std::size_t N>
void VectorLane<N>::describe(const Records& records, SparseIndex& index) {
    index.update(records.size(), [&](std::size_t i) { return firstWord(records[i].feature); });
}

// What a search costs is the wait for memory. Most lines of a block are asked for before it is searched, as
// those that turn out not to be needed cost less than one wait for one that is.
template <std::size_t N>
template <std::size_t Count>
void VectorLane<N>::findBlocks(const char* const* features, const Record** places) const {
    constexpr std::size_t PARTS = 8;
    std::uint64_t words[Count];
    std::size_t begins[Count];
    for (std::size_t i = 0; i < Count; ++i) {
        words[i] = firstWord(features[i]);
    }
    _index.findBlocks(words, begins);
    const std::size_t part = _index.blockLength() / PARTS;
    for (std::size_t i = 0; i < Count; ++i) {
        places[i] = _permanent.data() + begins[i];
        for (std::size_t j = 1; j < PARTS; ++j) {
            __builtin_prefetch(places[i] + j * part);
        }
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
                      [](const Record& left, const Record& right) {
                          return left == right && left.parameter.count() == right.parameter.count();
                      });
}

template <std::size_t N>
void VectorLane<N>::removeClass(std::uint16_t classIndex) {
    CHECK(isCompact(), "The lane has not been compacted since training");
    auto kept = _permanent.begin();
    for (const Record& record : _permanent) {
        if (record.parameter.classIndex() == classIndex) {
            continue;
        }
        *kept = record;
        if (kept->parameter.classIndex() > classIndex) {
            kept->parameter.packClassIndex();
        }
        ++kept;
    }
    _permanent.erase(kept, _permanent.end());
    describe(_permanent, _index);
}

template <std::size_t N>
bool VectorLane<N>::add(std::string_view feature, std::uint16_t classIndex, std::uint32_t count) {
    CHECK(feature.size() == N, "A feature has other than lane size");
    CHECK(count > 0, "Trying to add zero or below feature count");
    const Record record(feature, classIndex, count);
    const Record* known = findPermanent(record);
    if (known == nullptr) {
        const auto [place, isNew] = _temporary.insert(record);
        if (isNew) {
            return true;
        }
        known = &*place;
    }
    const std::uint32_t before = known->parameter.count();
    if (count > UINT32_MAX - before) {
        throw ClassifierException("Trying to train a feature into a class more than " +
                                  std::to_string(UINT32_MAX) +
                                  " times. This is the largest count of a feature.");
    }
    if (before == 0) {
        CHECK(_permaDeleted > 0, "Perma deleted is becomming zero.");
        --_permaDeleted;
    }
    const_cast<Record*>(known)->parameter.add(count);
    return before == 0;
}

template <std::size_t N>
bool VectorLane<N>::sub(std::string_view feature, std::uint16_t classIndex, std::uint32_t count,
                        std::uint32_t& removed) {
    CHECK(feature.size() == N, "A feature has other than lane size");
    CHECK(count > 0, "Trying to sub zero or below feature count");
    removed = 0;
    const Record key(feature, classIndex, 0);
    if (const Record* const known = findPermanent(key)) {
        removed = const_cast<Record*>(known)->parameter.sub(count);
        const bool isLast = removed > 0 && known->parameter.count() == 0;
        _permaDeleted += isLast ? 1 : 0;
        return isLast;
    }
    const auto place = _temporary.find(key);
    if (place == _temporary.end()) {
        return false;
    }
    removed = const_cast<Record&>(*place).parameter.sub(count);
    if (place->parameter.count() > 0) {
        return false;
    }
    _temporary.erase(place);
    return true;
}

// A text brings few new records into a big lane, so the distance to the next one is found by ever wider
// steps.
template <std::size_t N>
typename VectorLane<N>::Place VectorLane<N>::firstNotBelow(const Record& key, Place from) const {
    const Place end = _permanent.cend();
    std::ptrdiff_t step = 1;
    while (end - from > step && from[step - 1] < key) {
        from += step;
        step *= 2;
    }
    return std::lower_bound(from, from + std::min(step, end - from), key);
}

template <std::size_t N>
void VectorLane<N>::appendLiving(Records& out, Place from, Place to) const {
    if (_permaDeleted == 0) {
        out.insert(out.end(), from, to);
    } else {
        std::copy_if(from, to, std::back_inserter(out),
                     [](const Record& record) { return record.parameter.count() != 0; });
    }
}

// Only the new records are sorted; they then join the old ones, which already are. All allocation comes
// before the exchange.
template <std::size_t N>
void VectorLane<N>::compact() {
    if (isCompact()) {
        return;
    }
    const std::size_t newSize =
        _permanent.size() - static_cast<std::size_t>(_permaDeleted) + _temporary.size();
    Temporary empty(initialBuckets);
    Records fresh(_temporary.begin(), _temporary.end());
    std::sort(fresh.begin(), fresh.end());
    Records tmp;
    tmp.reserve(newSize);
    Place old = _permanent.cbegin();
    for (const Record& record : fresh) {
        const Place next = firstNotBelow(record, old);
        appendLiving(tmp, old, next);
        tmp.push_back(record);
        old = next;
    }
    appendLiving(tmp, old, _permanent.cend());
    CHECK(tmp.size() == newSize, "Unexpected size on new feature vector.");

    SparseIndex index;
    describe(tmp, index);
    _permanent.swap(tmp);
    _index.swap(index);
    _temporary.swap(empty);
    _permaDeleted = 0;
}

template <std::size_t N>
void VectorLane<N>::clear() {
    Records().swap(_permanent);
    SparseIndex().swap(_index);
    Temporary(initialBuckets).swap(_temporary);
    _permaDeleted = 0;
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
void VectorLane<N>::lookupAll(const char* const* features, std::size_t count, FeatureRecords* found) const {
    constexpr std::size_t BATCH = 32;  // as much as memory can be asked for at once
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
        if constexpr (N <= sizeof(word)) {
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
void VectorLane<N>::serialize(util::Bytes& out) const {
    CHECK(isCompact(), "The lane has not been compacted since training");
    util::database::writePrimitive(out, static_cast<std::uint32_t>(_permanent.size()));
    const char* const bytes = reinterpret_cast<const char*>(_permanent.data());
    out.insert(out.end(), bytes, bytes + _permanent.size() * sizeof(Record));
}

template <std::size_t N>
void VectorLane<N>::deserialize(util::database::DatabaseReader& reader, std::uint32_t classCount) {
    clear();
    const std::uint32_t count = reader.getNextPrimitive<std::uint32_t>();
    Records records;
    reader.getNextRecords(records, count);
    requireSound(records, classCount);
    describe(records, _index);
    _permanent.swap(records);
}

// A lane that breaks one of these would fail a check in the midst of a later request, and end the process
// with it.
template <std::size_t N>
void VectorLane<N>::requireSound(const Records& records, std::uint32_t classCount) {
    using util::database::DatabaseReaderException;
    const Record* previous = nullptr;
    for (const Record& record : records) {
        if (previous != nullptr && !(*previous < record)) {
            throw DatabaseReaderException("The database is corrupt, the records of a lane are not in order.");
        }
        if (record.parameter.classIndex() >= classCount) {
            throw DatabaseReaderException(
                "The database is corrupt, a record is of a class that does not exist.");
        }
        if (record.parameter.count() == 0) {
            throw DatabaseReaderException("The database is corrupt, a record has a count of 0.");
        }
        previous = &record;
    }
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
