#include "classifier/storage/TokenDistribution.h"

#include <utility>

#include "debug/Assertion.h"
#include "util/database/DatabaseReader.h"

namespace halvern::classifier::storage {

TokenDistributionImpl::TokenDistributionImpl(std::uint32_t maxTokenSize) {
    for (std::uint32_t size = 0; size <= maxTokenSize; ++size) {
        _lanes.emplace_back(size);
    }
}

StoredToken TokenDistributionImpl::find(const char* bytes, std::size_t length) const {
    return length < _lanes.size() ? _lanes[length].find({bytes, length}) : StoredToken{nullptr, 0};
}

std::uint32_t TokenDistributionImpl::getCount(const std::string& token) const {
    return token.size() < _lanes.size() ? _lanes[token.size()].getCount(token) : 0;
}

std::uint32_t TokenDistributionImpl::getCount(const char* bytes, std::size_t length) const {
    return find(bytes, length).count;
}

std::uint32_t TokenDistributionImpl::getTotalCount() const {
    std::uint32_t total = 0;
    for (const MemoryLane& lane : _lanes) {
        total += lane.total();
    }
    return total;
}

std::uint32_t TokenDistributionImpl::add(const std::string& token, std::uint32_t count) {
    CHECK(token.size() < _lanes.size());
    return _lanes[token.size()].add(token, count);
}

std::uint32_t TokenDistributionImpl::sub(const std::string& token, std::uint32_t count) {
    return token.size() < _lanes.size() ? _lanes[token.size()].sub(token, count) : 0;
}

std::map<std::uint32_t, std::uint64_t>& TokenDistributionImpl::getHistogram(
    std::map<std::uint32_t, std::uint64_t>& histogram) const {
    forEach([&histogram](std::string_view, std::uint32_t count) { ++histogram[count]; });
    return histogram;
}

void TokenDistributionImpl::clear() {
    for (MemoryLane& lane : _lanes) {
        lane.clear();
    }
}

void TokenDistributionImpl::compact() {
    for (MemoryLane& lane : _lanes) {
        lane.compact();
    }
}

std::uint64_t TokenDistributionImpl::getUniqueCount() const {
    std::uint64_t unique = 0;
    for (const MemoryLane& lane : _lanes) {
        unique += lane.uniqueCount();
    }
    return unique;
}

void TokenDistributionImpl::deserialize(util::database::DatabaseReader& reader) {
    clear();
    if (reader.atEnd()) {
        return;
    }
    const std::uint32_t laneCount = reader.getNextPrimitive<std::uint32_t>();
    _lanes.clear();
    // A lane is made when its bytes are there, so that a damaged number of lanes allocates no more than the
    // data bears.
    for (std::uint32_t tokenSize = 0; tokenSize < laneCount; ++tokenSize) {
        const std::uint32_t size = reader.getNextPrimitive<std::uint32_t>();
        util::Bytes chunks;
        reader.getNextCharStream(chunks, size);
        MemoryLane lane(tokenSize);
        if (size % lane.chunkSize() != 0) {
            throw util::database::DatabaseReaderException(
                "The database is corrupt, the size of a token lane is not a multiple of its token's size.");
        }
        lane.setPermanent(std::move(chunks));
        _lanes.push_back(std::move(lane));
    }
}

void TokenDistributionImpl::serialize(util::Bytes& out) const {
    util::database::writePrimitive(out, static_cast<std::uint32_t>(_lanes.size()));
    for (const MemoryLane& lane : _lanes) {
        util::Bytes flat;
        lane.flatten(flat);
        util::database::writePrimitive(out, static_cast<std::uint32_t>(flat.size()));
        out.insert(out.end(), flat.begin(), flat.end());
    }
}

}  // namespace halvern::classifier::storage
