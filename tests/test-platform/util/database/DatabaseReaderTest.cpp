#include "util/database/DatabaseReader.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using util::Bytes;
using util::database::DatabaseReader;
using util::database::DatabaseReaderException;

struct [[gnu::packed]] Pair {
    char letter;
    std::uint16_t number;
};

// Sizes that wrap in 32 bits or turn negative must neither pass nor reach an allocation.
TEST(DatabaseReaderTest, RefusesWhatEndsBeyondTheDataAndStaysWhereItWas) {
    for (const char* const size : {"\5\0\0\0", "\xff\xff\xff\xff", "\0\0\0\x80"}) {
        const std::string text = std::string(size, 4) + "ab";
        const Bytes data(text.begin(), text.end());
        DatabaseReader reader(data);
        std::string string;
        EXPECT_THROW(reader.getNextString(string), DatabaseReaderException) << text;
        EXPECT_THROW(reader.getNextPrimitive<std::uint64_t>(), DatabaseReaderException);
        // 3 x 0x55555556 is 2 in 32 bits.
        EXPECT_THROW(reader.getNextRecords<Pair>(0x55555556), DatabaseReaderException);
        Bytes stream;
        EXPECT_THROW(reader.getNextCharStream(stream, 0xffffffff), DatabaseReaderException);
        EXPECT_EQ(stream.capacity(), 0u);
        reader.getNextCharStream(stream, 6);
        EXPECT_EQ(stream, data);
    }
}

}  // namespace
