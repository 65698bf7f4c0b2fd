#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "util/Bytes.h"

namespace halvern::morvane::client::files {

// Builds data of version 5 from its records, which come in the order in which they are stored. The totals of
// the classes are worked out on the way.
class DataWriter {
public:
    struct Totals {
        std::uint64_t count = 0;
        std::uint32_t unique = 0;
    };

    // Throws Failure for more classes than a classifier can hold. sizeHint: the likely size of the result.
    DataWriter(std::uint32_t extractorVersion, double smoothing, const std::vector<std::string>& classNames,
               std::uint64_t sizeHint);

    // The lanes come in order, from 0 to 31, each of them.
    void beginLane();
    // Requires a feature of the lane's size, above the one before or equal and of a higher class, and
    // count > 0. Throws Failure if the file would pass its greatest size.
    void add(std::string_view feature, std::uint16_t classIndex, std::uint32_t count);
    void endLane();

    // What was added to the class so far.
    const Totals& totals(std::size_t classIndex) const { return _classes[classIndex].totals; }

    // The data; the writer is of no use afterwards. Throws Failure for a class whose total leaves 32 bits.
    util::Bytes finish();

private:
    struct ClassRow {
        std::string name;
        std::size_t offset;  // of the stored totals
        Totals totals = {};
    };

    util::Bytes _data;
    std::vector<ClassRow> _classes;  // by class index
    std::size_t _laneOffset = 0;
    std::uint32_t _laneRecords = 0;
};

}  // namespace halvern::morvane::client::files
