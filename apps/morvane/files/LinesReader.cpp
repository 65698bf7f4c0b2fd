#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Failure.h"
#include "files/DataWriter.h"
#include "files/Lines.h"
#include "util/Base64.h"
#include "util/database/DatabaseReader.h"

namespace halvern::morvane::client::files {
namespace {

using classifier::storage::FeatureSet;
using nlohmann::json;

constexpr std::uint32_t OLDEST_EXTRACTOR = 3;
constexpr std::uint32_t NEWEST_EXTRACTOR = 7;

// What is wrong with one line; the reader adds where it stands.
struct LineError {
    std::string problem;
};

// The members of one line, which are all asked for, one by one, so that a misspelt one is noticed.
class Line {
public:
    explicit Line(const std::string& text) : _json(json::parse(text, nullptr, false)) {
        if (_json.is_discarded()) {
            throw LineError{"this is no JSON"};
        }
        if (!_json.is_object()) {
            throw LineError{"this is no JSON object"};
        }
    }

    bool has(const char* name) const { return _json.contains(name); }

    std::uint64_t number(const char* name, std::uint64_t least, std::uint64_t most) {
        const json value = take(name);
        if (!value.is_number_unsigned() || value.get<std::uint64_t>() < least ||
            value.get<std::uint64_t>() > most) {
            throw LineError{"\"" + std::string(name) + "\" isn't a whole number from " +
                            std::to_string(least) + " to " + std::to_string(most)};
        }
        return value.get<std::uint64_t>();
    }

    double real(const char* name) {
        const json value = take(name);
        if (!value.is_number()) {
            throw LineError{"\"" + std::string(name) + "\" isn't a number"};
        }
        return value.get<double>();
    }

    std::string text(const char* name) {
        const json value = take(name);
        if (!value.is_string()) {
            throw LineError{"\"" + std::string(name) + "\" isn't a string"};
        }
        return value.get<std::string>();
    }

    bool hasBytes(const std::string& name) const {
        return has(name.c_str()) || has((name + "Base64").c_str());
    }

    // A member that stands under its name or, in Base64, under its name with "Base64" behind it.
    std::string bytes(const std::string& name) {
        const std::string encodedName = name + "Base64";
        if (!has(encodedName.c_str())) {
            return text(name.c_str());
        }
        const std::string encoded = text(encodedName.c_str());
        util::Bytes decoded;
        util::Base64DecoderImpl().decode(encoded, decoded);
        // The decoder forgives everything, but a dump that was damaged shouldn't be learned.
        std::string again;
        util::Base64EncoderImpl().encode(decoded, again);
        if (again != encoded) {
            throw LineError{"\"" + encodedName + "\" isn't Base64 with padding"};
        }
        return std::string(decoded.begin(), decoded.end());
    }

    // To be called when all is taken that is known.
    void requireNothingElse() const {
        if (!_json.empty()) {
            throw LineError{"\"" + _json.begin().key() + "\" has no place here"};
        }
    }

private:
    json take(const char* name) {
        const auto found = _json.find(name);
        if (found == _json.end()) {
            throw LineError{"\"" + std::string(name) + "\" is missing"};
        }
        json value = std::move(*found);
        _json.erase(found);
        return value;
    }

    json _json;
};

// The records of one lane as they came, in the bytes in which they are stored.
class CollectedLane {
public:
    explicit CollectedLane(std::size_t featureSize) : _featureSize(featureSize) {}

    void add(std::string_view feature, std::uint16_t classIndex, std::uint32_t count) {
        const std::size_t before = _bytes.size();
        _bytes.insert(_bytes.end(), feature.begin(), feature.end());
        if (feature.empty()) {
            _bytes.push_back(0);
        }
        util::database::writePrimitive(_bytes, classIndex);
        util::database::writePrimitive(_bytes, count);
        const LaneView lane = view();
        _isSorted = _isSorted && (before == 0 || isBelow(lane[lane.size() - 2], lane[lane.size() - 1]));
    }

    // Gives the records to the writer, sorted, and their memory back. Returns the first record that stands
    // twice, if there is one.
    std::optional<std::string> moveTo(DataWriter& writer) {
        sort();
        const LaneView lane = view();
        for (std::uint32_t i = 0; i < lane.size(); ++i) {
            const StoredRecord record = lane[i];
            if (i > 0 && !isBelow(lane[i - 1], record)) {
                return std::string(record.feature);
            }
            writer.add(record.feature, record.classIndex, record.count);
        }
        util::Bytes().swap(_bytes);
        return {};
    }

private:
    static bool isBelow(const StoredRecord& left, const StoredRecord& right) {
        const int order = left.feature.compare(right.feature);
        return order != 0 ? order < 0 : left.classIndex < right.classIndex;
    }

    LaneView view() const {
        return {_bytes.data(), static_cast<std::uint32_t>(_bytes.size() / LaneView::strideOf(_featureSize)),
                _featureSize};
    }

    void sort() {
        if (_isSorted) {
            return;
        }
        // Sorts in place whatever the length of a record, which the algorithms of the library can't.
        qsort_r(
            _bytes.data(), view().size(), view().stride(),
            [](const void* left, const void* right, void* featureSize) {
                const auto size = *static_cast<const std::size_t*>(featureSize);
                const LaneView leftView(static_cast<const char*>(left), 1, size);
                const LaneView rightView(static_cast<const char*>(right), 1, size);
                return isBelow(leftView[0], rightView[0]) ? -1 : isBelow(rightView[0], leftView[0]) ? 1 : 0;
            },
            &_featureSize);
    }

    std::size_t _featureSize;
    util::Bytes _bytes;
    bool _isSorted = true;
};

class LinesReader {
public:
    LinesReader(std::istream& in, const std::string& name) : _in(in), _name(name) {
        for (std::size_t length = 0; length < FeatureSet::laneCount; ++length) {
            _lanes.emplace_back(length);
        }
    }

    util::Bytes read() {
        std::string text;
        while (std::getline(_in, text)) {
            ++_lineNumber;
            try {
                readLine(text);
            } catch (const LineError& error) {
                throw failure(_name + ", line " + std::to_string(_lineNumber) + ": " + error.problem + ".");
            }
        }
        if (_in.bad()) {
            throw failure(_name + " can't be read to its end.");
        }
        if (_lineNumber == 0) {
            throw failure(_name + " is empty.");
        }
        return build();
    }

private:
    struct StatedTotals {
        std::uint64_t count;
        std::uint64_t unique;
    };

    Failure failure(const std::string& message) const {
        return {ExitCode::LOCAL_FILE, message,
                "Nothing was written. Lines as they should be: morvane file dump"};
    }

    void readLine(const std::string& text) {
        Line line(text);
        if (_lineNumber == 1) {
            readHeader(line);
        } else if (line.hasBytes("feature")) {
            readRecord(line);
        } else {
            readClass(line);
        }
        line.requireNothingElse();
    }

    void readHeader(Line& line) {
        if (line.text("format") != "morvane-classifier") {
            throw LineError{"the format isn't \"morvane-classifier\""};
        }
        _extractor = static_cast<std::uint32_t>(line.number("extractor", OLDEST_EXTRACTOR, NEWEST_EXTRACTOR));
        _smoothing = line.real("smoothing");
        if (!std::isfinite(_smoothing) || _smoothing <= 0) {
            throw LineError{"\"smoothing\" isn't above 0"};
        }
    }

    void readClass(Line& line) {
        const std::string name = line.bytes("class");
        if (name.empty()) {
            throw LineError{"the class has no name"};
        }
        if (_names.size() == FeatureSet::maxClasses) {
            throw LineError{"a classifier holds at most " + std::to_string(FeatureSet::maxClasses) +
                            " classes"};
        }
        if (!_indexes.emplace(name, static_cast<std::uint16_t>(_names.size())).second) {
            throw LineError{"the class " + inQuotes(name) + " stands twice"};
        }
        _names.push_back(name);
        _stated.emplace_back();
        if (line.has("totalCount") || line.has("uniqueFeatures")) {
            _stated.back() = StatedTotals{line.number("totalCount", 0, UINT32_MAX),
                                          line.number("uniqueFeatures", 0, UINT32_MAX)};
        }
    }

    void readRecord(Line& line) {
        const std::string feature = line.bytes("feature");
        const std::string className = line.bytes("class");
        const auto count = static_cast<std::uint32_t>(line.number("count", 1, UINT32_MAX));
        if (feature.size() >= _lanes.size()) {
            throw LineError{"the feature " + inQuotes(feature) + " has more than " +
                            std::to_string(_lanes.size() - 1) + " bytes"};
        }
        const auto known = _indexes.find(className);
        if (known == _indexes.end()) {
            throw LineError{"the class " + inQuotes(className) + " has no line of its own above"};
        }
        _lanes[feature.size()].add(feature, known->second, count);
        _size += LaneView::strideOf(feature.size());
    }

    util::Bytes build() {
        constexpr std::uint64_t ENOUGH_FOR_HEADER = 4096;
        DataWriter writer(_extractor, _smoothing, _names, _size + ENOUGH_FOR_HEADER + 64 * _names.size());
        for (CollectedLane& lane : _lanes) {
            writer.beginLane();
            if (const auto twice = lane.moveTo(writer)) {
                throw failure(_name + ": the feature " + inQuotes(*twice) +
                              " stands twice for the same class.");
            }
            writer.endLane();
        }
        for (std::size_t i = 0; i < _names.size(); ++i) {
            const DataWriter::Totals totals = writer.totals(i);
            if (_stated[i] && (_stated[i]->count != totals.count || _stated[i]->unique != totals.unique)) {
                throw failure(
                    _name + ": the class " + inQuotes(_names[i]) + " should have " +
                    std::to_string(_stated[i]->unique) + " features, " + std::to_string(_stated[i]->count) +
                    " occurrences in all, and its lines are " + std::to_string(totals.unique) + " with " +
                    std::to_string(totals.count) +
                    ". Lines are missing or were changed; leave the totals out of the class's line if "
                    "that is meant.");
            }
        }
        return writer.finish();
    }

    std::istream& _in;
    const std::string& _name;
    std::uint64_t _lineNumber = 0;
    std::uint32_t _extractor = 0;
    double _smoothing = 0;
    std::vector<std::string> _names;                   // by class index
    std::vector<std::optional<StatedTotals>> _stated;  // by class index
    std::unordered_map<std::string, std::uint16_t> _indexes;
    std::vector<CollectedLane> _lanes;  // by length of the feature
    std::uint64_t _size = 0;            // of all records
};

}  // namespace

util::Bytes loadLines(std::istream& in, const std::string& name) { return LinesReader(in, name).read(); }

}  // namespace halvern::morvane::client::files
