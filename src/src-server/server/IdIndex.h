#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace halvern::morvane {

// Ids and their places, in the order in which they were added.
//
// Programs count their ids, so mostly they come in order already and are asked for in order too; then neither
// costs more than a comparison. Ids are the client's choice, and no choice makes this slow.
class IdIndex {
public:
    static constexpr std::size_t NOT_FOUND = SIZE_MAX;

    void reserve(std::size_t ids) { _ids.reserve(ids); }

    // The bytes of the id must outlive the index.
    void add(std::string_view id) { _ids.push_back(id); }

    // Call once, after the last id. False if two are the same.
    bool complete();

    // The place of the id, or NOT_FOUND. Requires that complete() was true.
    std::size_t find(std::string_view id);

private:
    std::string_view inOrder(std::size_t i) const { return _ids[_order.empty() ? i : _order[i]]; }

    std::vector<std::string_view> _ids;
    std::vector<std::uint32_t> _order;  // the places by their ids; empty if they have that order already
    std::size_t _next = 0;              // behind the one that was found last
};

}  // namespace halvern::morvane
