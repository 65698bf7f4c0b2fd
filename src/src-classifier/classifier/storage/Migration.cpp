#include "classifier/storage/Migration.h"

#include <cstdint>
#include <string>
#include <string_view>

#include "classifier/storage/FeatureSet.h"
#include "classifier/storage/TokenDistribution.h"
#include "util/Pieces.h"
#include "util/database/DatabaseReader.h"

namespace halvern::classifier::storage {

namespace {

constexpr std::uint32_t currentVersion = 5;
constexpr std::uint32_t maxTokenSize = 30;
// Old data has none of its own.
constexpr double smoothing = 0.05;

// One class at a time, since the new set holds everything once more.
void migrateClass(util::database::DatabaseReader& reader, FeatureSet& features) {
    std::string name;
    reader.getNextString(name);
    TokenDistributionImpl distribution(maxTokenSize);
    distribution.deserialize(reader);
    features.addClass(name);
    distribution.forEach([&](std::string_view token, std::uint32_t count) {
        if (count == 0) {
            return;
        }
        if (token.size() >= FeatureSet::laneCount) {
            throw util::database::DatabaseReaderException(
                "The database is corrupt, it holds a token that is too long to be stored.");
        }
        features.add(name, token, count);
    });
}

}  // namespace

void migrate(const util::Bytes& data, util::Bytes& out) {
    util::database::DatabaseReader reader(data);
    const std::uint32_t version = reader.getNextPrimitive<std::uint32_t>();
    if (version == currentVersion) {
        out = data;
        return;
    }
    if (version != 3 && version != 4) {
        throw MigrationException("Expected to migrate from v3 or c4");
    }
    const std::uint32_t classCount = reader.getNextPrimitive<std::uint32_t>();
    FeatureSet features;
    for (std::uint32_t i = 0; i < classCount; ++i) {
        migrateClass(reader, features);
    }
    features.compact();
    util::database::writePrimitive(out, currentVersion);
    util::database::writePrimitive(out, version);
    util::database::writePrimitive(out, smoothing);
    util::Pieces pieces;
    features.serialize(pieces);
    pieces.appendTo(out);
}

}  // namespace halvern::classifier::storage
