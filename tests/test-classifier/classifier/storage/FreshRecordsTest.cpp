#include "classifier/storage/FreshRecords.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>

#include "classifier/storage/StorageTypes.h"

namespace halvern::classifier::storage {
namespace {

// Either part of a pair takes shift-and-xor mixing, as many libraries hash byte after byte, to the same state
// behind the parts before it, so that all 1024 words have one hash there. A table that such words slow down
// costs minutes for a text of a few megabytes.
TEST(FreshRecordsTest, BuiltWordsDoNotCollide) {
    using Record = FeatureRecord<30>;
    const char* const parts[][2] = {{"vp:", "vqy"}, {"c8c", "fyc"}, {"qr_", "r1_"}, {"%lf", "%m%"},
                                    {"we-", "wfl"}, {"%hz", "%i;"}, {"etu", "f3u"}, {"%-;", "%,z"},
                                    {"fs#", "g4#"}, {"ug%", "uhd"}};
    std::set<std::uint32_t> hashes;
    for (unsigned choice = 0; choice < 1024; ++choice) {
        std::string word;
        for (unsigned i = 0; i < 10; ++i) {
            word += parts[i][choice >> i & 1];
        }
        hashes.insert(FreshRecords<Record>::hashOf(Record(word, 0, 1)));
    }
    EXPECT_GT(hashes.size(), 1000U);
}

}  // namespace
}  // namespace halvern::classifier::storage
