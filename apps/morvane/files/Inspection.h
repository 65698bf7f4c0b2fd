#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "files/ClassifierView.h"
#include "util/Bytes.h"

namespace halvern::morvane::client::files {

// A guarantee of the data format that a file breaks.
struct Complaint {
    std::uint64_t offset;  // of the field that is wrong, from the start of the file
    std::string place;     // "lane 5, record 12 ("hello", class 0)"
    std::string problem;   // a sentence
};

// Keeps the first complaints and counts the others: of a file of zeros there are millions.
class Complaints {
public:
    explicit Complaints(std::size_t limit) : _limit(limit) {}

    // Calls describe() for the Complaint only if it is kept.
    template <class Describe>
    void add(const Describe& describe) {
        if (_kept.size() < _limit) {
            _kept.push_back(describe());
        }
        ++_count;
    }
    void add(std::uint64_t offset, std::string place, std::string problem) {
        add([&] { return Complaint{offset, std::move(place), std::move(problem)}; });
    }

    const std::vector<Complaint>& kept() const { return _kept; }
    std::uint64_t count() const { return _count; }

private:
    std::size_t _limit;
    std::vector<Complaint> _kept;
    std::uint64_t _count = 0;
};

// What a look at the bytes of a classifier brought to light.
struct Inspection {
    std::uint32_t dataVersion = 0;
    // Of version 5 data; whole if there are no complaints. Points into the data.
    ClassifierView view = {};
    Complaints complaints;
    std::vector<std::string> notes = {};  // what is no fault but worth knowing

    bool isSound() const { return complaints.count() == 0; }
};

// Looks for every guarantee of docs/data-format.md, in one pass, and goes on behind a complaint as long as it
// is clear where the next field lies. Takes data of versions 3, 4 and 5.
Inspection inspect(const util::Bytes& data, std::size_t maxComplaints);

// The bytes for a person: in quotes, with \xNN for what can't be shown.
std::string inQuotes(std::string_view bytes);

}  // namespace halvern::morvane::client::files
