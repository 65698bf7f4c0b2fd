#include "server/XmlHookImpl.h"

#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "io/filesystem/SaveFile.h"
#include "support/RecordingLog.h"
#include "windows/file/DiskSpace.h"

namespace halvern::morvane {
namespace {

// Keeps what it is given; a name that comes twice keeps both. Fails at nothing free, and when told to.
class Disk final : public io::filesystem::SaveFile, public windows::file::DiskSpace {
public:
    std::uint64_t freeSpace = 1'000'000'000;
    bool isBroken = false;
    mutable std::multimap<std::string, std::string> files;

    std::uint64_t free(const std::string& directory) const override {
        EXPECT_EQ(directory, "./logs/requests/");
        if (freeSpace == 0) {
            throw io::filesystem::SaveFileExceptionImpl("no figures today");
        }
        return freeSpace;
    }
    void save(const std::string& name, const util::Bytes& data, std::uint32_t mode) const override {
        const std::lock_guard lock(_mutex);
        EXPECT_EQ(mode, 0u);
        if (isBroken) {
            throw io::filesystem::SaveFileExceptionImpl("nowhere to write");
        }
        files.emplace(name, std::string(data.begin(), data.end()));
    }

private:
    mutable std::mutex _mutex;
};

TEST(XmlHookImplTest, SavesBytesOnlyWhereAGigabyteIsFree) {
    const std::string notXml("\0<\xFF no xml", 10);
    const struct {
        std::uint64_t free;
        bool isBroken;
        std::string request;
        std::size_t files;
        std::uint32_t level;
        const char* line;
    } rows[] = {
        {1'000'000'000, false, notXml, 1, logLevel::log, ""},
        {999'999'999, false, notXml, 0, logLevel::log,
         "Skipping to save request, to little harddrive space (less than 1gb). Free space: 999999999"},
        {999'999'999, false, "", 0, logLevel::log, ""},
        {1'000'000'000, true, notXml, 0, logLevel::error, "Could not save a request: nowhere to write"},
        {0, false, notXml, 0, logLevel::error, "Could not save a request: no figures today"},
    };
    for (const auto& row : rows) {
        Disk disk;
        disk.freeSpace = row.free;
        disk.isBroken = row.isBroken;
        support::RecordingLog log;
        XmlHookImpl(disk, log, "./logs/requests/", disk).save(row.request);
        ASSERT_EQ(disk.files.size(), row.files) << row.line;
        for (const auto& [name, bytes] : disk.files) {
            EXPECT_TRUE(name.starts_with("./logs/requests//request_threadid_")) << name;
            EXPECT_NE(name.find("_uid_"), std::string::npos) << name;
            EXPECT_TRUE(name.ends_with(".xml")) << name;
            EXPECT_EQ(bytes, notXml);
        }
        ASSERT_EQ(log.entries().size(), *row.line == 0 ? 0u : 1u) << row.line;
        for (const auto& entry : log.entries()) {
            EXPECT_EQ(entry.level, row.level);
            EXPECT_EQ(entry.text, row.line);
        }
    }
}

TEST(XmlHookImplTest, NamesNeverRepeat) {
    const Disk disk;
    support::RecordingLog log;
    const XmlHookFactoryImpl factory(disk, log, "./logs/requests/", disk);
    // Threads that come and go get the same ids again, and their requests come faster than any clock ticks.
    for (int generation = 0; generation < 20; ++generation) {
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&factory] {
                for (int request = 0; request < 50; ++request) {
                    factory.create()->save("request");
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    EXPECT_EQ(disk.files.size(), 4000u);
    for (const auto& [name, bytes] : disk.files) {
        ASSERT_EQ(disk.files.count(name), 1u) << name;
    }
}

}  // namespace
}  // namespace halvern::morvane
