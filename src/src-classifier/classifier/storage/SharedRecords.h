#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>

namespace halvern::classifier::storage {

// Records in a row, which copies share.
//
// Once there has been a copy, or if the records lie in somebody else's memory, they never change again:
// whoever wants other ones makes new ones. So a copy costs nothing, and takes no memory but for what it
// changes. Copies may be made by any number of threads at once; a change needs the object for itself alone.
template <class Record>
class SharedRecords {
public:
    SharedRecords() = default;
    // May be changed in place, if nobody else does.
    SharedRecords(const std::shared_ptr<Record[]>& records, std::size_t size) noexcept
        : _owner(records), _first(records.get()), _size(size) {}
    // The records lie in memory that lives as long as the owner.
    SharedRecords(std::shared_ptr<const void> owner, const Record* first, std::size_t size)
        : _owner(std::move(owner)), _first(first), _size(size), _isShared(true) {}
    // Of truncated records it makes a copy of exact size, so that the memory of what was dropped goes back.
    SharedRecords(const SharedRecords& other) {
        if (other._isTruncated) {
            *this = copyOf(other);
            return;
        }
        _owner = other._owner;
        _first = other._first;
        _size = other._size;
        other._isShared.store(true, std::memory_order_relaxed);
        _isShared.store(true, std::memory_order_relaxed);
    }
    SharedRecords& operator=(const SharedRecords&) = delete;
    SharedRecords& operator=(SharedRecords&& other) noexcept {
        _owner = std::move(other._owner);
        _first = std::exchange(other._first, nullptr);
        _size = std::exchange(other._size, 0);
        _isTruncated = std::exchange(other._isTruncated, false);
        _isShared.store(other._isShared.exchange(false, std::memory_order_relaxed),
                        std::memory_order_relaxed);
        return *this;
    }

    const Record* data() const { return _first; }
    std::size_t size() const { return _size; }
    bool empty() const { return _size == 0; }
    const Record* begin() const { return _first; }
    const Record* end() const { return _first + _size; }

    bool isShared() const { return _isShared.load(std::memory_order_relaxed); }
    // One of these records, to be changed. Requires that they aren't shared.
    static Record& changeable(const Record& record) { return const_cast<Record&>(record); }
    // Drops the last records. Requires that they aren't shared.
    void truncate(std::size_t size) {
        _isTruncated |= size < _size;
        _size = size;
    }
    // Makes the records changeable, by a copy if need be. Throws std::bad_alloc and changes nothing then.
    void makeOwn() {
        if (isShared()) {
            *this = copyOf(*this);
        }
    }

    // Memory of exactly that size for records that the caller sets.
    static std::shared_ptr<Record[]> unsetRecords(std::size_t size) {
        return std::shared_ptr<Record[]>(new Record[size]);
    }

private:
    static SharedRecords copyOf(const SharedRecords& other) {
        const std::shared_ptr<Record[]> records = unsetRecords(other.size());
        std::copy(other.begin(), other.end(), records.get());
        return SharedRecords(records, other.size());
    }

    std::shared_ptr<const void> _owner;
    const Record* _first = nullptr;
    std::size_t _size = 0;
    bool _isTruncated = false;
    // Never false while another copy lives. Set in the original by a copy, which doesn't change it otherwise.
    mutable std::atomic<bool> _isShared{false};
};

}  // namespace halvern::classifier::storage
