#include "files/Arithmetic.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

#include "Failure.h"
#include "files/DataWriter.h"

namespace halvern::morvane::client::files {
namespace {

void requireSameKind(const ClassifierFile& left, const ClassifierFile& right) {
    if (left.view.extractorVersion != right.view.extractorVersion) {
        throw Failure{ExitCode::DIFFERENT,
                      left.name + " has extractor version " + std::to_string(left.view.extractorVersion) +
                          ", " + right.name + " has " + std::to_string(right.view.extractorVersion) +
                          ". They cut up texts in different ways, so their counts can't be added.",
                      "Train one of them anew from its texts."};
    }
    if (left.view.smoothing != right.view.smoothing) {
        throw Failure{ExitCode::DIFFERENT,
                      left.name + " has the smoothing constant " + std::to_string(left.view.smoothing) +
                          ", " + right.name + " has " + std::to_string(right.view.smoothing) + ".",
                      "Decide for one: dump the other, edit its first line, and load it again."};
    }
}

// The classes of the result, and under which index of these the classes of the right side stand.
struct ClassTable {
    static constexpr std::uint32_t ABSENT = UINT32_MAX;

    ClassTable(const ClassifierView& left, const ClassifierView& right, bool takeNewOnes) {
        std::unordered_map<std::string_view, std::uint32_t> indexes;
        for (const auto& entry : left.classes) {
            indexes.emplace(entry.name, static_cast<std::uint32_t>(names.size()));
            names.push_back(entry.name);
        }
        for (const auto& entry : right.classes) {
            const auto known = indexes.find(entry.name);
            if (known != indexes.end()) {
                fromRight.push_back(known->second);
            } else if (takeNewOnes) {
                fromRight.push_back(static_cast<std::uint32_t>(names.size()));
                names.push_back(entry.name);
            } else {
                fromRight.push_back(ABSENT);
            }
        }
    }

    std::vector<std::string> names;
    std::vector<std::uint32_t> fromRight;
};

// Walks through a lane feature by feature.
class FeatureWalk {
public:
    explicit FeatureWalk(const LaneView& lane) : _lane(lane) {}

    bool atEnd() const { return _next == _lane.size(); }
    std::string_view feature() const { return _lane[_next].feature; }
    // Calls visit(record) for the records of the feature, and goes on to the next one.
    template <class Visit>
    void take(const Visit& visit) {
        const std::string_view feature = this->feature();
        do {
            visit(_lane[_next]);
        } while (++_next < _lane.size() && _lane[_next].feature == feature);
    }

private:
    const LaneView& _lane;
    std::uint32_t _next = 0;
};

// left + sign * right.
class Combination {
public:
    Combination(const ClassifierFile& left, const ClassifierFile& right, std::int64_t sign)
        : _left(left), _right(right), _sign(sign), _classes(left.view, right.view, sign > 0) {}

    util::Bytes run() {
        DataWriter writer(_left.view.extractorVersion, _left.view.smoothing, _classes.names,
                          _left.data.size() + (_sign > 0 ? _right.data.size() : 0));
        for (std::size_t length = 0; length < _left.view.lanes.size(); ++length) {
            writer.beginLane();
            combineLane(_left.view.lanes[length], _right.view.lanes[length], writer);
            writer.endLane();
        }
        return writer.finish();
    }

private:
    struct Count {
        std::uint32_t classIndex;
        std::int64_t count;  // holds any sum of two stored counts
    };

    void combineLane(const LaneView& leftLane, const LaneView& rightLane, DataWriter& writer) {
        FeatureWalk left(leftLane);
        FeatureWalk right(rightLane);
        while (!left.atEnd() || !right.atEnd()) {
            const int order = right.atEnd() ? -1 : left.atEnd() ? 1 : left.feature().compare(right.feature());
            const std::string_view feature = order <= 0 ? left.feature() : right.feature();
            _counts.clear();
            if (order <= 0) {
                left.take([this](const StoredRecord& record) {
                    _counts.push_back({record.classIndex, record.count});
                });
            }
            if (order >= 0) {
                right.take([this](const StoredRecord& record) { takeRight(record); });
            }
            write(feature, writer);
        }
    }

    void takeRight(const StoredRecord& record) {
        const std::uint32_t classIndex = _classes.fromRight[record.classIndex];
        if (classIndex == ClassTable::ABSENT) {
            throw Failure{ExitCode::DIFFERENT, _right.name + " has learned texts of the class " +
                                                   inQuotes(_right.view.classes[record.classIndex].name) +
                                                   ", which " + _left.name + " doesn't have."};
        }
        _counts.push_back({classIndex, _sign * std::int64_t{record.count}});
    }

    // The classes of the right side may stand in another order, so the records of a feature are sorted anew.
    // A class has at most two of them, one of each side.
    void write(std::string_view feature, DataWriter& writer) {
        std::sort(_counts.begin(), _counts.end(),
                  [](const Count& a, const Count& b) { return a.classIndex < b.classIndex; });
        for (auto next = _counts.begin(); next != _counts.end();) {
            const std::uint32_t classIndex = next->classIndex;
            std::int64_t sum = 0;
            for (; next != _counts.end() && next->classIndex == classIndex; ++next) {
                sum += next->count;
            }
            requireStorable(feature, classIndex, sum);
            if (sum > 0) {
                writer.add(feature, static_cast<std::uint16_t>(classIndex), static_cast<std::uint32_t>(sum));
            }
        }
    }

    void requireStorable(std::string_view feature, std::uint32_t classIndex, std::int64_t sum) const {
        const auto inClass = [&] {
            return "the feature " + inQuotes(feature) + " in the class " +
                   inQuotes(_classes.names[classIndex]);
        };
        if (sum < 0) {
            throw Failure{ExitCode::DIFFERENT,
                          _right.name + " counts " + inClass() + " " + std::to_string(-sum) +
                              " times more than " + _left.name + ".",
                          "Only what a classifier has learned can be taken off it. Nothing was written."};
        }
        if (sum > UINT32_MAX) {
            throw Failure{ExitCode::DIFFERENT,
                          "Together they count " + inClass() + " " + std::to_string(sum) + " times, and " +
                              std::to_string(UINT32_MAX) + " is the most that can be stored."};
        }
    }

    const ClassifierFile& _left;
    const ClassifierFile& _right;
    const std::int64_t _sign;
    const ClassTable _classes;
    std::vector<Count> _counts;  // of one feature; kept for its memory
};

}  // namespace

util::Bytes merged(const ClassifierFile& left, const ClassifierFile& right) {
    requireSameKind(left, right);
    return Combination(left, right, 1).run();
}

util::Bytes difference(const ClassifierFile& left, const ClassifierFile& right) {
    requireSameKind(left, right);
    return Combination(left, right, -1).run();
}

}  // namespace halvern::morvane::client::files
