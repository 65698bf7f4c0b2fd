#include "server/XmlHookImpl.h"

#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "exceptions/Exception.h"
#include "io/filesystem/ExistsFile.h"
#include "io/filesystem/SaveFile.h"
#include "support/RecordingLog.h"
#include "support/TempDir.h"
#include "windows/file/DiskSpace.h"

namespace halvern::morvane {
namespace {

class Failure final : public exceptions::WithMessage<exceptions::RuntimeException> {
public:
    using WithMessage::WithMessage;
};

class FixedDiskSpace final : public windows::file::DiskSpace {
public:
    FixedDiskSpace(std::uint64_t free, std::string directory)
        : _free(free), _directory(std::move(directory)) {}
    std::uint64_t free(const std::string& directory) const override {
        EXPECT_EQ(directory, _directory);
        return _free;
    }

private:
    const std::uint64_t _free;
    const std::string _directory;
};

class FullDisk final : public windows::file::DiskSpace {
public:
    std::uint64_t free(const std::string&) const override { throw Failure("no figures today"); }
};

// Keeps what it is given; a name that comes twice keeps both.
class MemorySaveFile final : public io::filesystem::SaveFile {
public:
    void save(const std::string& name, const util::Bytes& data, std::uint32_t mode) const override {
        const std::lock_guard lock(_mutex);
        EXPECT_EQ(mode, 0u);
        _files.emplace(name, std::string(data.begin(), data.end()));
    }
    std::multimap<std::string, std::string>& files() const { return _files; }

private:
    mutable std::mutex _mutex;
    mutable std::multimap<std::string, std::string> _files;
};

class XmlHookImplTest : public testing::Test {
protected:
    io::filesystem::ExistsFileImpl _existsFile;
    support::RecordingLog _log;
    MemorySaveFile _saveFile;
};

TEST_F(XmlHookImplTest, SavesBytesOnlyWhereAGigabyteIsFree) {
    struct Row {
        std::uint64_t free;
        std::string request;
        std::size_t files;
        std::string line;
    };
    const std::string notXml("\0<\xFF no xml", 10);
    const Row rows[] = {
        {1'000'000'000, notXml, 1, ""},
        {999'999'999, notXml, 0,
         "Skipping to save request, to little harddrive space (less than 1gb). Free space: 999999999"},
        {999'999'999, "", 0, ""},
        {1'000'000'000, "", 0, ""},
    };
    for (const Row& row : rows) {
        _saveFile.files().clear();
        support::RecordingLog log;
        const FixedDiskSpace diskSpace(row.free, "./logs/requests/");
        XmlHookImpl(_saveFile, _existsFile, log, "./logs/requests/", diskSpace).save(row.request);
        ASSERT_EQ(_saveFile.files().size(), row.files) << row.free;
        if (row.files == 1) {
            const auto& [name, bytes] = *_saveFile.files().begin();
            EXPECT_EQ(name.find("./logs/requests//request_threadid_"), 0u) << name;
            EXPECT_NE(name.find("_uid_"), std::string::npos) << name;
            EXPECT_EQ(name.substr(name.size() - 4), ".xml");
            EXPECT_EQ(bytes, notXml);
        }
        ASSERT_EQ(log.entries().size(), row.line.empty() ? 0u : 1u) << row.free;
        if (!row.line.empty()) {
            EXPECT_EQ(log.entries()[0].level, logLevel::log);
            EXPECT_EQ(log.entries()[0].text, row.line);
        }
    }
}

TEST_F(XmlHookImplTest, NamesNeverRepeat) {
    const FixedDiskSpace diskSpace(1'000'000'000, "");
    const XmlHookFactoryImpl factory(_saveFile, _existsFile, _log, "", diskSpace);
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
    const auto& files = _saveFile.files();
    EXPECT_EQ(files.size(), 4000u);
    for (auto file = files.begin(); file != files.end(); file = files.upper_bound(file->first)) {
        ASSERT_EQ(files.count(file->first), 1u) << file->first;
        ASSERT_EQ(file->first.find("request_threadid_"), 0u) << file->first;
    }
}

TEST_F(XmlHookImplTest, FailuresEndInTheLog) {
    const support::TempDir folder;
    const io::filesystem::SaveFileImpl saveFile;
    const FixedDiskSpace diskSpace(1'000'000'000, folder.file("nowhere"));
    XmlHookImpl(saveFile, _existsFile, _log, folder.file("nowhere"), diskSpace).save("request");
    const FullDisk fullDisk;
    XmlHookImpl(saveFile, _existsFile, _log, folder.path(), fullDisk).save("request");

    ASSERT_EQ(_log.entries().size(), 2u);
    EXPECT_EQ(_log.entries()[0].text.find("Could not save a request: "), 0u) << _log.entries()[0].text;
    EXPECT_EQ(_log.entries()[0].level, logLevel::error);
    EXPECT_EQ(_log.entries()[1].text, "Could not save a request: no figures today");
}

}  // namespace
}  // namespace halvern::morvane
