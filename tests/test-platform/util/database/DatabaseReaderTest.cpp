#include "util/database/DatabaseReader.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <functional>

#include "support/Failure.h"
#include "support/Hex.h"

namespace {

using util::Bytes;
using util::database::DatabaseReader;

struct [[gnu::packed]] Pair {
    char letter;
    std::uint16_t number;
};

// A string's own message must win over that of the bytes it consists of, and sizes that wrap in 32 bits or
// turn negative must neither pass nor reach an allocation.
TEST(DatabaseReaderTest, RefusesWhatEndsBeyondTheDataAndStaysWhereItWas) {
    Bytes stream;
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
        {"01 02 03", "getNextPrimitive", number},
        {"05 00 00", "getNextPrimitive", string},
        {"05 00 00 00 61", "getNextString", string},
        {"ff ff ff ff 61 62", "getNextString", string},
        {"00 00 00 80 61 62", "getNextString", string},
        {"01 02", "getNextCharStream", [&](auto& reader) { reader.getNextCharStream(stream, 0xffffffff); }},
        {"01 02 03 04 05", "getNextCharStream",
         [&](auto& reader) { reader.template getNextRecords<Pair>(2); }},
        // 3 x 0x55555556 is 2 in 32 bits.
        {"01 02 03", "getNextCharStream",
         [&](auto& reader) { reader.template getNextRecords<Pair>(0x55555556); }},
    };
    for (const auto& row : cases) {
        const Bytes data = support::fromHex(row.data);
        DatabaseReader reader(data);
        EXPECT_EQ(
            support::failureOf<util::database::DatabaseReaderException>([&] { row.read(reader); }),
            std::string("The database is corrupt, the size of a member exceeds the database size. Method ") +
                row.method + ".")
            << row.data;
        Bytes all;
        reader.getNextCharStream(all, static_cast<std::uint32_t>(data.size()));
        EXPECT_EQ(all, data);
        EXPECT_EQ(stream.capacity(), 0u);
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
