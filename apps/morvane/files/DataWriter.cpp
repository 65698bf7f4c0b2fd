#include "files/DataWriter.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "Failure.h"
#include "classifier/storage/FeatureSet.h"
#include "files/ClassifierFile.h"
#include "files/Inspection.h"
#include "util/database/DatabaseReader.h"

namespace halvern::morvane::client::files {

using util::database::writePrimitive;

namespace {

void overwrite(util::Bytes& data, std::size_t offset, std::uint32_t value) {
    std::memcpy(data.data() + offset, &value, sizeof(value));
}

void requireStorableSize(const util::Bytes& data) {
    if (data.size() > ClassifierFiles::maxSize) {
        throw Failure{ExitCode::DIFFERENT,
                      "The result would be longer than " + std::to_string(ClassifierFiles::maxSize) +
                          " bytes, the most that a classifier's file may have.",
                      "Divide what it is made of between several classifiers."};
    }
}

}  // namespace

DataWriter::DataWriter(std::uint32_t extractorVersion, double smoothing,
                       const std::vector<std::string>& classNames, std::uint64_t sizeHint) {
    constexpr std::size_t MAX_CLASSES = classifier::storage::FeatureSet::maxClasses;
    if (classNames.size() > MAX_CLASSES) {
        throw Failure{ExitCode::DIFFERENT, "The result would have " + std::to_string(classNames.size()) +
                                               " classes, and a classifier holds at most " +
                                               std::to_string(MAX_CLASSES) + "."};
    }
    // Memory that is never touched costs nothing, and growing would hold everything twice.
    _data.reserve(std::min(sizeHint, ClassifierFiles::maxSize));
    writePrimitive(_data, std::uint32_t{5});
    writePrimitive(_data, extractorVersion);
    writePrimitive(_data, smoothing);
    writePrimitive(_data, static_cast<std::uint16_t>(classNames.size()));
    for (const std::string& name : classNames) {
        util::database::writeString(_data, name);
        writePrimitive(_data, static_cast<std::uint16_t>(_classes.size()));
        _classes.push_back({name, _data.size()});
        writePrimitive(_data, std::uint64_t{0});  // both totals; finish knows them
    }
}

void DataWriter::beginLane() {
    _laneOffset = _data.size();
    _laneRecords = 0;
    writePrimitive(_data, std::uint32_t{0});
}

void DataWriter::add(std::string_view feature, std::uint16_t classIndex, std::uint32_t count) {
    requireStorableSize(_data);
    _data.insert(_data.end(), feature.begin(), feature.end());
    if (feature.empty()) {
        _data.push_back(0);  // the filler
    }
    writePrimitive(_data, classIndex);
    writePrimitive(_data, count);
    _classes[classIndex].totals.count += count;
    ++_classes[classIndex].totals.unique;
    ++_laneRecords;
}

void DataWriter::endLane() { overwrite(_data, _laneOffset, _laneRecords); }

util::Bytes DataWriter::finish() {
    requireStorableSize(_data);
    for (const ClassRow& row : _classes) {
        if (row.totals.count > UINT32_MAX) {
            throw Failure{ExitCode::DIFFERENT, "The class " + inQuotes(row.name) +
                                                   " would have a total count of " +
                                                   std::to_string(row.totals.count) + ", and " +
                                                   std::to_string(UINT32_MAX) + " is the most it can hold."};
        }
        overwrite(_data, row.offset, static_cast<std::uint32_t>(row.totals.count));
        overwrite(_data, row.offset + sizeof(std::uint32_t), row.totals.unique);
    }
    return std::move(_data);
}

}  // namespace halvern::morvane::client::files
