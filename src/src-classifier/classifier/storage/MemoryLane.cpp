#include "classifier/storage/MemoryLane.h"

#include <algorithm>
#include <utility>

#include "debug/Assertion.h"
#include "util/database/DatabaseReader.h"

namespace halvern::classifier::storage {

StoredToken MemoryLane::find(std::string_view token) const {
    if (const char* const chunk = search(token)) {
        return {chunk, countOf(chunk)};
    }
    const auto entry = _temporary.find(token);
    return entry != _temporary.end() ? StoredToken{entry->first.data(), entry->second}
                                     : StoredToken{nullptr, 0};
}

std::uint32_t MemoryLane::getCount(std::string_view token) const {
    CHECK(token.size() == _TokenSize);
    return find(token).count;
}

std::uint32_t MemoryLane::add(std::string_view token, std::uint32_t count) {
    CHECK(count > 0);
    CHECK(token.size() == _TokenSize);
    if (const char* const chunk = search(token)) {
        const std::uint32_t before = countOf(chunk);
        _deleted -= before == 0 ? 1 : 0;
        setCount(chunk, before + count);
        _total += count;
        return before + count;
    }
    const std::uint32_t sum = _temporary[std::string(token)] += count;
    _total += count;
    return sum;
}

std::uint32_t MemoryLane::sub(std::string_view token, std::uint32_t count) {
    CHECK(count > 0);
    CHECK(token.size() == _TokenSize);
    if (const char* const chunk = search(token)) {
        const std::uint32_t before = countOf(chunk);
        const std::uint32_t taken = std::min(count, before);
        _deleted += taken > 0 && taken == before ? 1 : 0;
        setCount(chunk, before - taken);
        _total -= taken;
        return before - taken;
    }
    const auto entry = _temporary.find(token);
    if (entry == _temporary.end()) {
        return 0;
    }
    const std::uint32_t taken = std::min(count, entry->second);
    const std::uint32_t remaining = entry->second -= taken;
    _total -= taken;
    if (remaining == 0) {
        _temporary.erase(entry);
    }
    return remaining;
}

void MemoryLane::flatten(util::Bytes& out) const {
    CHECK(_permanent.size() % _ChunkSize == 0);
    out.clear();
    out.reserve(_permanent.size() + _temporary.size() * _ChunkSize);
    auto fresh = _temporary.begin();
    const auto appendFresh = [&] {
        out.insert(out.end(), fresh->first.begin(), fresh->first.end());
        util::database::writePrimitive(out, fresh->second);
        ++fresh;
    };
    for (std::size_t at = 0; at < _permanent.size(); at += _ChunkSize) {
        const char* const chunk = _permanent.data() + at;
        while (fresh != _temporary.end() && fresh->first < std::string_view(chunk, _TokenSize)) {
            appendFresh();
        }
        if (countOf(chunk) != 0) {
            out.insert(out.end(), chunk, chunk + _ChunkSize);
        }
    }
    while (fresh != _temporary.end()) {
        appendFresh();
    }
}

void MemoryLane::compact() {
    util::Bytes flat;
    flatten(flat);
    _permanent.swap(flat);
    _temporary.clear();
    _deleted = 0;
}

void MemoryLane::clear() { setPermanent({}); }

void MemoryLane::setPermanent(util::Bytes&& bytes) {
    _temporary.clear();
    _permanent = std::move(bytes);
    _deleted = 0;
    _total = 0;
    for (std::size_t i = 0; i < _permanent.size() / _ChunkSize; ++i) {
        const std::uint32_t count = countAt(i);
        _total += count;
        _deleted += count == 0 ? 1 : 0;
    }
}

std::uint32_t MemoryLane::countAt(std::size_t index) const {
    // The report of a failed check shows the condition as it stands here.
    // clang-format off
    CHECK(index < _permanent.size() /_ChunkSize);
    // clang-format on
    return countOf(_permanent.data() + index * _ChunkSize);
}

void MemoryLane::setCount(const char* chunk, std::uint32_t count) {
    std::memcpy(_permanent.data() + (chunk - _permanent.data()) + _TokenSize, &count, sizeof(count));
}

const char* MemoryLane::search(std::string_view token) const {
    CHECK(_permanent.size() % _ChunkSize == 0);
    const char* permaIt = _permanent.data();
    const char* const permaEndIt = permaIt + _permanent.size();
    for (std::size_t chunks = _permanent.size() / _ChunkSize; chunks > 0;) {
        const std::size_t half = chunks / 2;
        const char* const middle = permaIt + half * _ChunkSize;
        if (std::string_view(middle, _TokenSize) < token) {
            permaIt = middle + _ChunkSize;
            chunks -= half + 1;
        } else {
            chunks = half;
        }
    }
    if (permaIt == permaEndIt) {
        return nullptr;
    }
    CHECK(permaIt + _ChunkSize <= permaEndIt);
    return std::string_view(permaIt, _TokenSize) == token ? permaIt : nullptr;
}

}  // namespace halvern::classifier::storage
