#include "classifier/storage/SharedRecords.h"

#include <gtest/gtest.h>

namespace halvern::classifier::storage {

TEST(SharedRecordsTest, CopiesShareWhatTheyNeedWholeAndLetGoOfWhatWasDropped) {
    const struct {
        std::size_t kept;
        bool isShared;
    } cases[] = {{3, true}, {2, false}, {0, false}};
    for (const auto& [kept, isShared] : cases) {
        auto numbers = std::make_shared<std::vector<int>>(std::vector{7, 8, 9});
        const std::weak_ptr<std::vector<int>> memory = numbers;
        SharedRecords<int> original(numbers);
        numbers.reset();
        original.truncate(kept);
        SharedRecords<int> moved;
        moved = std::move(original);
        const SharedRecords<int> copy(moved);
        EXPECT_EQ(moved.isShared(), isShared) << kept;
        EXPECT_EQ(copy.isShared(), isShared) << kept;
        moved = {};
        EXPECT_EQ(memory.expired(), !isShared) << kept;
        ASSERT_EQ(copy.size(), kept);
        for (std::size_t i = 0; i < kept; ++i) {
            EXPECT_EQ(copy.data()[i], 7 + static_cast<int>(i));
        }
    }
}

}  // namespace halvern::classifier::storage
