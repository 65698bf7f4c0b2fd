#include "classifier/storage/StorageTypes.h"

#include <algorithm>

namespace halvern::classifier::storage {

void ParameterAccessor::reset() {
    feature = nullptr;
    classes = 0;
    total = 0;
    std::fill(_parameters.begin(), _parameters.end(), 0);
}

void ClassEntry::removeUnique() {
    CHECK(_unique > 0, "Removing unique below zero.");
    --_unique;
}

void ClassEntry::removeCount(std::uint32_t count) {
    CHECK(count <= _count, "Removing more count than current count");
    _count -= count;
}

}  // namespace halvern::classifier::storage
