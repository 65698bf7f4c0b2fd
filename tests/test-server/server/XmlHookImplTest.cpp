#include "server/XmlHookImpl.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/MemoryFiles.h"
#include "support/RecordingLog.h"
#include "windows/file/DiskSpace.h"

namespace halvern::morvane {
namespace {

struct FakeSpace final : windows::file::DiskSpace {
    std::uint64_t free(const std::string&) const override { return bytes; }
    std::uint64_t bytes = 1'000'000'000;
};

TEST(XmlHookImplTest, NamesNeverRepeatAndTheLastGigabyteIsLeft) {
    const support::MemoryFiles disk;
    FakeSpace space;
    support::RecordingLog log;
    const XmlHookFactoryImpl factory(disk, log, "./logs/requests/", space);
    // Threads that come and go get the same ids again, and their requests come faster than any clock ticks.
    for (int generation = 0; generation < 20; ++generation) {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&factory] {
                for (int request = 0; request < 50; ++request) {
                    factory.create()->save("request");
                }
            });
        }
    }
    ASSERT_EQ(disk.names().size(), 4000u);
    EXPECT_TRUE(disk.names()[0].starts_with("./logs/requests//request_threadid_")) << disk.names()[0];
    EXPECT_TRUE(log.entries().empty());
    space.bytes = 999'999'999;
    factory.create()->save("");
    EXPECT_TRUE(log.entries().empty());
    factory.create()->save("request");
    EXPECT_EQ(disk.names().size(), 4000u);
    EXPECT_EQ(log.entries().at(0).text,
              "Skipping to save request, to little harddrive space (less than 1gb). Free space: 999999999");
}

}  // namespace
}  // namespace halvern::morvane
