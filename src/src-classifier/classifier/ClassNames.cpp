#include "classifier/ClassNames.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace halvern::classifier {

ClassNames::ClassNames(std::vector<std::string> names) : _names(std::move(names)), _order(_names.size()) {
    std::iota(_order.begin(), _order.end(), 0);
    std::sort(_order.begin(), _order.end(),
              [this](std::uint32_t left, std::uint32_t right) { return _names[left] < _names[right]; });
}

std::vector<std::uint32_t>::const_iterator ClassNames::place(std::string_view name) const {
    return std::lower_bound(
        _order.begin(), _order.end(), name,
        [this](std::uint32_t index, std::string_view wanted) { return _names[index] < wanted; });
}

std::size_t ClassNames::find(std::string_view name) const {
    const auto found = place(name);
    return found != _order.end() && _names[*found] == name ? *found : NOT_FOUND;
}

void ClassNames::add(std::string_view name) {
    _order.insert(place(name), static_cast<std::uint32_t>(_names.size()));
    _names.emplace_back(name);
}

}  // namespace halvern::classifier
