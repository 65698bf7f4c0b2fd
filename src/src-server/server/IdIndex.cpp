#include "server/IdIndex.h"

#include <algorithm>
#include <numeric>

namespace halvern::morvane {

namespace {

// Shorter ids go first: so numbers follow each other as they count.
bool isBefore(std::string_view a, std::string_view b) {
    return a.size() != b.size() ? a.size() < b.size() : a < b;
}

}  // namespace

bool IdIndex::complete() {
    const auto isNotBefore = [](std::string_view a, std::string_view b) { return !isBefore(a, b); };
    if (std::adjacent_find(_ids.begin(), _ids.end(), isNotBefore) == _ids.end()) {
        return true;
    }
    _order.resize(_ids.size());
    std::iota(_order.begin(), _order.end(), 0U);
    std::sort(_order.begin(), _order.end(),
              [this](std::uint32_t a, std::uint32_t b) { return isBefore(_ids[a], _ids[b]); });
    return std::adjacent_find(_order.begin(), _order.end(), [this](std::uint32_t a, std::uint32_t b) {
               return _ids[a] == _ids[b];
           }) == _order.end();
}

std::size_t IdIndex::find(std::string_view id) {
    if (_next < _ids.size() && _ids[_next] == id) {
        return _next++;
    }
    std::size_t first = 0;
    for (std::size_t length = _ids.size(); length > 0;) {
        const std::size_t half = length / 2;
        if (isBefore(inOrder(first + half), id)) {
            first += half + 1;
            length -= half + 1;
        } else {
            length = half;
        }
    }
    if (first == _ids.size() || inOrder(first) != id) {
        return NOT_FOUND;
    }
    const std::size_t place = _order.empty() ? first : _order[first];
    _next = place + 1;
    return place;
}

}  // namespace halvern::morvane
