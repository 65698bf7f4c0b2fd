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

// Halves without a branch on the outcome, which nothing could predict: the compiler turns the choice into a
// conditional move. What a choice costs then is the wait for memory, so both records that the next step may
// want are asked for ahead.
template <std::size_t N>
template <class Below>
const FeatureRecord<N>* VectorLane<N>::lowerBound(const Below& below) const {
    const Record* base = _permanent.data();
    std::size_t size = _permanent.size();
    if (size == 0) {
        return base;
    }
    while (size > 1) {
        const std::size_t half = size / 2;
        __builtin_prefetch(base + half / 2);
        __builtin_prefetch(base + half + half / 2);
        base = below(base[half - 1]) ? base + half : base;
        size -= half;
    }
    return below(*base) ? base + 1 : base;
}

template <std::size_t N>
const FeatureRecord<N>* VectorLane<N>::findPermanent(const Record& key) const {
    const Record* const hit = lowerBound([&key](const Record& record) { return record < key; });
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

    _permanent.swap(tmp);
    _temporary.swap(empty);
    _permaDeleted = 0;
}

template <std::size_t N>
void VectorLane<N>::clear() {
    Records().swap(_permanent);
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
    const Record* record =
        lowerBound([bytes](const Record& candidate) { return isFeatureBelow<N>(candidate.feature, bytes); });
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
    CHECK(isCompact(), "The lane has not been compacted since training");
    if (_permanent.empty()) {
        std::fill_n(found, count, FeatureRecords{});
        return;
    }
    for (std::size_t first = 0; first < count; first += groupSize) {
        lookupGroup(features + first, std::min(groupSize, count - first), found + first);
    }
}

// All searches of one lane take the same number of steps, as the outcome of a step changes only where the
// half begins, never how long it is. So they can take each step together, and their cache misses overlap.
template <std::size_t N>
void VectorLane<N>::lookupGroup(const char* const* features, std::size_t count, FeatureRecords* found) const {
    const Record* base[groupSize];
    std::uint64_t firstWord[groupSize];
    for (std::size_t i = 0; i < count; ++i) {
        base[i] = _permanent.data();
        firstWord[i] = N > 0 ? featureWord<N>(features[i], 0) : 0;
    }
    const auto isBelow = [&](const Record& record, std::size_t i) {
        const std::uint64_t word = N > 0 ? featureWord<N>(record.feature, 0) : 0;
        if constexpr (N <= 8) {
            return word < firstWord[i];
        } else {
            return word < firstWord[i] ||
                   (word == firstWord[i] && isFeatureBelow<N>(record.feature, features[i]));
        }
    };
    for (std::size_t size = _permanent.size(); size > 1;) {
        const std::size_t half = size / 2;
        for (std::size_t i = 0; i < count; ++i) {
            base[i] = isBelow(base[i][half - 1], i) ? base[i] + half : base[i];
        }
        size -= half;
    }
    for (std::size_t i = 0; i < count; ++i) {
        found[i] = recordsFrom(isBelow(*base[i], i) ? base[i] + 1 : base[i], features[i]);
    }
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
