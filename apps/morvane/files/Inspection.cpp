#include "files/Inspection.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "files/Cursor.h"
#include "files/OldInspection.h"
#include "util/Utf8.h"

namespace halvern::morvane::client::files {
namespace {

using classifier::storage::ClassEntry;

constexpr std::uint32_t CURRENT_VERSION = 5;
constexpr std::uint32_t OLDEST_EXTRACTOR = 3;
constexpr std::uint32_t NEWEST_EXTRACTOR = 7;

std::string laneName(std::size_t length) { return "lane " + std::to_string(length); }

std::string recordName(std::uint32_t index, const StoredRecord& record) {
    return laneName(record.feature.size()) + ", record " + std::to_string(index) + " (" +
           inQuotes(record.feature) + ", class " + std::to_string(record.classIndex) + ")";
}

// Data of version 5, field by field.
class Inspector {
public:
    Inspector(const util::Bytes& data, Inspection& result)
        : _data(data), _cursor(data), _complaints(result.complaints), _view(result.view) {}

    void inspect() {
        if (inspectHeader() && inspectClasses() && inspectLanes()) {
            inspectTotals();
            if (_cursor.remaining() > 0) {
                _complaints.add(
                    _cursor.offset(), "behind lane 31",
                    std::to_string(_cursor.remaining()) + " bytes too many; the data should end here");
            }
        }
    }

private:
    // What the records of a class sum up to, without the limits of the stored fields.
    struct Sum {
        std::uint64_t count = 0;
        std::uint64_t unique = 0;
    };

    bool cutOff(const std::string& place, const char* what) {
        _complaints.add(_cursor.offset(), place,
                        "the data ends inside " + std::string(what) + ", " +
                            std::to_string(_cursor.remaining()) + " bytes behind its start");
        return false;
    }

    bool inspectHeader() {
        std::uint32_t version = 0;
        _cursor.take(version);
        const std::uint64_t extractorOffset = _cursor.offset();
        if (!_cursor.take(_view.extractorVersion)) {
            return cutOff("header", "the extractor version");
        }
        if (_view.extractorVersion < OLDEST_EXTRACTOR || _view.extractorVersion > NEWEST_EXTRACTOR) {
            _complaints.add(extractorOffset, "header",
                            "the extractor version is " + std::to_string(_view.extractorVersion) +
                                ", and there are only 3 to 7");
        }
        const std::uint64_t smoothingOffset = _cursor.offset();
        if (!_cursor.take(_view.smoothing)) {
            return cutOff("header", "the smoothing constant");
        }
        if (!std::isfinite(_view.smoothing) || _view.smoothing <= 0) {
            _complaints.add(smoothingOffset, "header",
                            "the smoothing constant is " + std::to_string(_view.smoothing) +
                                ", which is no number above 0; probabilities can't be worked out with it");
        }
        return true;
    }

    bool inspectClasses() {
        std::uint16_t classCount = 0;
        if (!_cursor.take(classCount)) {
            return cutOff("header", "the number of classes");
        }
        std::unordered_set<std::string_view> names;
        for (std::uint32_t row = 0; row < classCount; ++row) {
            const std::string place = "class row " + std::to_string(row);
            const std::uint64_t nameOffset = _cursor.offset();
            std::uint32_t length = 0;
            std::string_view name;
            if (!_cursor.take(length)) {
                return cutOff(place, "the length of the name");
            }
            if (!_cursor.take(name, length)) {
                _complaints.add(nameOffset, place,
                                "the name should have " + std::to_string(length) + " bytes, and only " +
                                    std::to_string(_cursor.remaining()) + " are left");
                return false;
            }
            if (name.empty()) {
                _complaints.add(nameOffset, place, "the name is empty");
            } else if (!names.insert(name).second) {
                _complaints.add(nameOffset, place, "the name " + inQuotes(name) + " stands twice");
            }
            ClassEntry entry{std::string(name)};
            const std::uint64_t indexOffset = _cursor.offset();
            if (!_cursor.take(entry._classIndex)) {
                return cutOff(place, "the index");
            }
            if (entry._classIndex != row) {
                _complaints.add(
                    indexOffset, place,
                    "the index is " + std::to_string(entry._classIndex) + ", and should be the row's place");
            }
            _totalsOffsets.push_back(_cursor.offset());
            if (!_cursor.take(entry._count) || !_cursor.take(entry._unique)) {
                return cutOff(place, "the totals");
            }
            _view.classes.push_back(std::move(entry));
        }
        _sums.resize(classCount);
        return true;
    }

    bool inspectLanes() {
        for (std::size_t length = 0; length < _view.lanes.size(); ++length) {
            const std::uint64_t offset = _cursor.offset();
            std::uint32_t count = 0;
            std::string_view records;
            if (!_cursor.take(count)) {
                return cutOff(laneName(length), "the number of records");
            }
            if (!_cursor.take(records, count * std::uint64_t{LaneView::strideOf(length)})) {
                _complaints.add(offset, laneName(length),
                                "there should be " + std::to_string(count) + " records of " +
                                    std::to_string(LaneView::strideOf(length)) + " bytes, and only " +
                                    std::to_string(_cursor.remaining()) + " bytes are left");
                return false;
            }
            _view.lanes[length] = LaneView(records.data(), count, length);
            inspectRecords(_view.lanes[length]);
        }
        return true;
    }

    void inspectRecords(const LaneView& lane) {
        StoredRecord previous{};
        for (std::uint32_t i = 0; i < lane.size(); ++i) {
            const StoredRecord record = lane[i];
            const auto complain = [&](std::size_t offsetInRecord, const auto& problem) {
                _complaints.add([&] {
                    return Complaint{offsetOf(lane.bytes(i)) + offsetInRecord, recordName(i, record),
                                     problem()};
                });
            };
            const std::size_t numbers = lane.stride() - LaneView::numbersSize;
            if (i > 0) {
                const int order = previous.feature.compare(record.feature);
                if (order == 0 && previous.classIndex == record.classIndex) {
                    complain(0, [] { return std::string("the same pair stands in the record before"); });
                } else if (order > 0 || (order == 0 && previous.classIndex > record.classIndex)) {
                    complain(0, [&] {
                        return "it should stand before record " + std::to_string(i - 1) + " (" +
                               inQuotes(previous.feature) + ", class " + std::to_string(previous.classIndex) +
                               ")";
                    });
                }
            }
            if (record.feature.empty() && *lane.bytes(i) != 0) {
                complain(0, [] {
                    return std::string("the filler byte isn't 0, so equal classifiers differ in bytes");
                });
            }
            if (record.count == 0) {
                complain(numbers + sizeof(record.classIndex), [] { return std::string("the count is 0"); });
            }
            if (record.classIndex >= _sums.size()) {
                complain(numbers, [&] {
                    return "there is no such class; the classifier has " + std::to_string(_sums.size());
                });
            } else {
                _sums[record.classIndex].count += record.count;
                ++_sums[record.classIndex].unique;
            }
            previous = record;
        }
    }

    void inspectTotals() {
        for (std::size_t row = 0; row < _view.classes.size(); ++row) {
            const ClassEntry& entry = _view.classes[row];
            const std::string place = "class row " + std::to_string(row) + " (" + inQuotes(entry.name) + ")";
            if (entry._count != _sums[row].count) {
                _complaints.add(_totalsOffsets[row], place,
                                "the total is " + std::to_string(entry._count) +
                                    ", and the counts of its records sum up to " +
                                    std::to_string(_sums[row].count));
            }
            if (entry._unique != _sums[row].unique) {
                _complaints.add(_totalsOffsets[row] + sizeof(entry._count), place,
                                "the number of distinct features is " + std::to_string(entry._unique) +
                                    ", and it has " + std::to_string(_sums[row].unique) + " records");
            }
        }
    }

    std::uint64_t offsetOf(const char* place) const {
        return static_cast<std::uint64_t>(place - _data.data());
    }

    const util::Bytes& _data;
    Cursor _cursor;
    Complaints& _complaints;
    ClassifierView& _view;
    std::vector<std::uint64_t> _totalsOffsets;  // by class row
    std::vector<Sum> _sums;                     // by class row
};

}  // namespace

Inspection inspect(const util::Bytes& data, std::size_t maxComplaints) {
    Inspection result{.complaints = Complaints(maxComplaints)};
    if (data.empty()) {
        result.complaints.add(0, "file", "it is empty");
    } else if (!Cursor(data).take(result.dataVersion)) {
        result.complaints.add(0, "header", "the data ends inside the data version");
    } else if (result.dataVersion == CURRENT_VERSION) {
        Inspector(data, result).inspect();
    } else if (isOldVersion(result.dataVersion)) {
        inspectOld(data, result);
    } else {
        result.complaints.add(0, "header",
                              "the data version is " + std::to_string(result.dataVersion) +
                                  ", and only 3, 4 and 5 are known; this may be no classifier");
    }
    return result;
}

std::string inQuotes(std::string_view bytes) {
    std::string text = "\"";
    while (!bytes.empty()) {
        const auto first = static_cast<unsigned char>(bytes.front());
        const util::Utf8Character decoded = util::firstUtf8Character(bytes);
        const bool isControl =
            decoded.character < 0x20 || (decoded.character >= 0x7F && decoded.character < 0xA0);
        std::size_t taken = 1;
        if (first == '"' || first == '\\') {
            text += '\\';
            text += bytes.front();
        } else if (decoded.length > 0 && !isControl) {
            taken = decoded.length;
            text += bytes.substr(0, taken);
        } else {
            constexpr const char* DIGITS = "0123456789abcdef";
            text += {'\\', 'x', DIGITS[first >> 4U], DIGITS[first & 15U]};
        }
        bytes.remove_prefix(taken);
    }
    return text + "\"";
}

}  // namespace halvern::morvane::client::files
