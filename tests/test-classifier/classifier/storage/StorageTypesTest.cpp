#include "classifier/storage/StorageTypes.h"

#include <gtest/gtest.h>

#include "support/FailedCheck.h"
#include "support/Hex.h"

namespace halvern::classifier::storage {
namespace {

template <class Record>
std::string bytesOf(const Record& record) {
    return support::toHex(reinterpret_cast<const char*>(&record), sizeof(record));
}

TEST(StorageTypesTest, RecordIsItsFeatureClassAndCountWithoutPadding) {
    EXPECT_EQ(bytesOf(FeatureRecord<1>("a", 3, 9)), "61 03 00 09 00 00 00");
    EXPECT_EQ(bytesOf(FeatureRecord<0>("", 1, 2)).substr(3), "01 00 02 00 00 00");
    EXPECT_EQ(bytesOf(FeatureRecord<5>("abcde", 0x0102, 0x03040506)), "61 62 63 64 65 02 01 06 05 04 03");
    EXPECT_EQ(sizeof(FeatureRecord<0>), 7u);
    EXPECT_EQ(sizeof(FeatureRecord<2>), 8u);
    EXPECT_EQ(sizeof(FeatureRecord<13>), 19u);
    EXPECT_EQ(sizeof(FeatureRecord<30>), 36u);
}

TEST(StorageTypesTest, RecordsOrderByUnsignedBytesThenClassAndNeverByCount) {
    using Record = FeatureRecord<2>;
    const Record rising[] = {{std::string_view("\0z", 2), 9, 1},
                             {"\x01\xff", 0, 9},
                             {"a\x7f", 0, 1},
                             {"a\x80", 0, 7},
                             {"a\x80", 1, 3},
                             {"a\x80", 256, 2},
                             {"\xff\x01", 0, 1}};
    for (const Record& left : rising) {
        for (const Record& right : rising) {
            EXPECT_EQ(left < right, &left < &right) << bytesOf(left) << " and " << bytesOf(right);
            EXPECT_EQ(left == right, &left == &right) << bytesOf(left) << " and " << bytesOf(right);
        }
    }
    EXPECT_TRUE(Record("ab", 4, 1) == Record("ab", 4, 2));
    FeatureRecord<0> filled("", 4, 1);
    filled.feature[0] = 'x';
    EXPECT_TRUE(filled == FeatureRecord<0>("", 4, 2));
    EXPECT_FALSE(filled < FeatureRecord<0>("", 4, 1) || FeatureRecord<0>("", 4, 1) < filled);
    EXPECT_EQ(filled.hash(), FeatureRecord<0>("", 4, 2).hash());
}

TEST(StorageTypesTest, HashTakesBytesAsSigned) {
    // By hand: FF is -1, then 01, then the class folded into the fold of these.
    EXPECT_EQ(FeatureRecord<2>("\xff\x01", 3, 8).hash(), 0xa4c87f4e307u);
    EXPECT_NE(FeatureRecord<2>("\xff\x01", 4, 8).hash(), 0xa4c87f4e307u);
}

TEST(StorageTypesTest, ParameterTakesOffAtMostWhatIsThere) {
    Parameter parameter(1, 5);
    EXPECT_EQ(parameter.sub(3), 3u);
    EXPECT_EQ(parameter.sub(3), 2u);
    EXPECT_EQ(parameter.sub(3), 0u);
    parameter.packClassIndex();
    EXPECT_EQ(parameter.classIndex(), 0);
    EXPECT_EQ(support::failedCheck([&] { parameter.packClassIndex(); }),
              "classIndex == _classIndex - 1 / Packing class indexes seems wrong");
}

TEST(StorageTypesTest, AccessorCountsTheClassesThatHoldAFeature) {
    const char byte = 'x';
    ParameterAccessor accessor(3);
    accessor.setFeaturePtr(&byte);
    accessor.add({0, 1});
    accessor.add({1, 5});
    EXPECT_EQ(accessor.classes, 2);
    EXPECT_EQ(accessor.total, 6u);
    EXPECT_EQ(accessor._parameters, (std::vector<std::uint32_t>{1, 5, 0}));
    EXPECT_EQ(support::failedCheck([&] {
                  accessor.add({1, 1});
              }),
              "_parameters[parameter.classIndex()] == 0 / Overwriting a parameter accessor count");
    EXPECT_EQ(support::failedCheck([&] {
                  accessor.add({3, 1});
              }),
              "parameter.classIndex() < _parameters.size() / The parameter accessor array is to short");
    EXPECT_EQ(support::failedCheck([&] { accessor.setFeaturePtr(nullptr); }),
              "featurePtr != nullptr / Setting null feature ptr");
    accessor.reset();
    EXPECT_EQ(accessor.feature, nullptr);
    EXPECT_EQ(accessor.classes, 0);
    EXPECT_EQ(accessor.total, 0u);
    EXPECT_EQ(accessor._parameters, std::vector<std::uint32_t>(3, 0));
}

TEST(StorageTypesTest, ClassTotalsNeverFallBelowZero) {
    ClassEntry entry{"a", 0, 5, 1};
    EXPECT_EQ(support::failedCheck([&] { entry.removeCount(6); }),
              "count <= _count / Removing more count than current count");
    entry.removeCount(5);
    entry.removeUnique();
    EXPECT_EQ(entry._count, 0u);
    EXPECT_EQ(support::failedCheck([&] { entry.removeUnique(); }),
              "_unique > 0 / Removing unique below zero.");
}

}  // namespace
}  // namespace halvern::classifier::storage
