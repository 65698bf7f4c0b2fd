#include "util/database/DatabaseReader.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <functional>

#include "support/FailureOf.h"
#include "support/Hex.h"

namespace {

using util::Bytes;
using util::database::DatabaseReader;

struct [[gnu::packed]] Pair {
    char letter;
    std::uint16_t number;
};

TEST(DatabaseReaderTest, GivesBackWhatWasWritten) {
    Bytes data;
    util::database::writePrimitive(data, std::uint32_t{5});
    util::database::writeString(data, "ab");
    EXPECT_EQ(support::toHex(data), "05 00 00 00 02 00 00 00 61 62");
    util::database::writePrimitive(data, 0.05);
    util::database::writeString(data, std::string_view("\0\xff", 2));
    data.insert(data.end(), {'x', 1, 2, 'y', 3, 4, 'z'});

    DatabaseReader reader(data);
    std::string text;
    Bytes tail{'o', 'l', 'd'};
    std::vector<Pair> pairs(7);
    EXPECT_EQ(reader.getNextPrimitive<std::uint32_t>(), 5u);
    reader.getNextString(text);
    EXPECT_EQ(text, "ab");
    EXPECT_EQ(reader.getNextPrimitive<double>(), 0.05);
    reader.getNextString(text);
    EXPECT_EQ(text, std::string("\0\xff", 2));
    reader.getNextRecords(pairs, 2);
    ASSERT_EQ(pairs.size(), 2u);
    EXPECT_EQ(std::uint16_t{pairs[1].number}, 0x0403);
    EXPECT_FALSE(reader.atEnd());
    reader.getNextCharStream(tail, 1);
    EXPECT_EQ(tail, Bytes{'z'});
    EXPECT_TRUE(reader.atEnd());
    reader.getNextCharStream(tail, 0);
    EXPECT_TRUE(tail.empty());
}

// A string's own message must win over that of the bytes it consists of, and sizes that wrap in 32 bits or
// turn negative must neither pass nor reach an allocation.
TEST(DatabaseReaderTest, RefusesWhatEndsBeyondTheDataAndStaysWhereItWas) {
    Bytes stream;
    std::vector<Pair> pairs;
    const auto number = [](auto& reader) { reader.template getNextPrimitive<std::uint32_t>(); };
    const auto string = [](auto& reader) {
        std::string text;
        reader.getNextString(text);
    };
    const struct {
        const char* data;
        const char* method;
        std::function<void(DatabaseReader&)> read;
    } cases[] = {
        {"", "getNextPrimitive", number},
        {"01 02 03", "getNextPrimitive", number},
        {"05 00 00", "getNextPrimitive", string},
        {"05 00 00 00 61", "getNextString", string},
        {"ff ff ff ff 61 62", "getNextString", string},
        {"fc ff ff ff 61 62", "getNextString", string},
        {"00 00 00 80 61 62", "getNextString", string},
        {"01 02", "getNextCharStream", [&](auto& reader) { reader.getNextCharStream(stream, 3); }},
        {"01 02", "getNextCharStream", [&](auto& reader) { reader.getNextCharStream(stream, 0xffffffff); }},
        {"01 02 03 04 05", "getNextCharStream", [&](auto& reader) { reader.getNextRecords(pairs, 2); }},
        // 3 x 0x55555556 is 2 in 32 bits.
        {"01 02 03", "getNextCharStream", [&](auto& reader) { reader.getNextRecords(pairs, 0x55555556); }},
    };
    for (const auto& row : cases) {
        const Bytes data = support::fromHex(row.data);
        DatabaseReader reader(data);
        EXPECT_EQ(
            support::failureOf<util::database::DatabaseReaderException>([&] { row.read(reader); }),
            std::string("The database is corrupt, the size of a member exceeds the database size. Method ") +
                row.method + ".")
            << row.data;
        for (const char byte : data) {
            EXPECT_EQ(reader.getNextPrimitive<char>(), byte);
        }
        EXPECT_TRUE(reader.atEnd());
        EXPECT_EQ(pairs.capacity() + stream.capacity(), 0u);
    }
}

// The data is address space that is never touched, so that its size costs nothing.
TEST(DatabaseReaderTest, BoundsDataBeyondFourGigabytes) {
    const std::size_t size = (std::size_t{1} << 32) + 8;
    void* const space = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(space, MAP_FAILED);
    DatabaseReader reader(std::span<const char>(static_cast<const char*>(space), size));
    EXPECT_EQ(reader.getNextPrimitive<std::uint64_t>(), 0u);
    EXPECT_FALSE(reader.atEnd());
    munmap(space, size);
}

}  // namespace
