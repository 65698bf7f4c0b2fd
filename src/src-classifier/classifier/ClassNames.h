#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace halvern::classifier {

// The names of a classifier's classes. Every answer of the classifier shares one of these, so that it
// outlives the classifier and yet copies no name.
class ClassNames {
public:
    static constexpr std::size_t NOT_FOUND = SIZE_MAX;

    ClassNames() = default;
    // Requires distinct names.
    explicit ClassNames(std::vector<std::string> names);

    std::size_t size() const { return _names.size(); }
    const std::string& operator[](std::size_t index) const { return _names[index]; }
    // The index of the name that is next-th in the order of unsigned bytes.
    std::size_t inOrder(std::size_t next) const { return _order[next]; }
    // The name's index, or NOT_FOUND.
    std::size_t find(std::string_view name) const;
    // Takes the last index for the name. Requires that it is new.
    void add(std::string_view name);

private:
    std::vector<std::uint32_t>::const_iterator place(std::string_view name) const;

    std::vector<std::string> _names;
    std::vector<std::uint32_t> _order;
};

}  // namespace halvern::classifier
