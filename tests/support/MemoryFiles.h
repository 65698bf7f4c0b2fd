#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "io/filesystem/ExistsFile.h"
#include "io/filesystem/LoadFile.h"
#include "io/filesystem/RemoveFile.h"
#include "io/filesystem/SaveFile.h"
#include "io/filesystem/SizeFile.h"

namespace support {

// A disk in memory, for any number of threads, that remembers what was done to it and fails when told to.
class MemoryFiles final : public io::filesystem::LoadFile,
                          public io::filesystem::SaveFile,
                          public io::filesystem::ExistsFile,
                          public io::filesystem::SizeFile,
                          public io::filesystem::RemoveFile {
public:
    // Each counts down to the call that fails; 0 means that none does.
    mutable int failingLoad = 0;
    mutable int failingSave = 0;
    mutable int failingRemove = 0;
    // A save that fails has written all the same: what a disk does whose directory can't be synchronised.
    bool failedSaveStays = false;
    // Short memory instead of a failing disk.
    bool outOfMemory = false;
    // Called at the start of a load, while others may use the disk.
    std::function<void(const std::string& name)> onLoad = [](const std::string&) {};

    util::Bytes load(const std::string& name, std::uint32_t = 0) const override {
        onLoad(name);
        const std::lock_guard guard(_mutex);
        ++_loads;
        fail<io::filesystem::LoadFileExceptionImpl>(failingLoad, "The disk can't be read.");
        const auto file = _files.find(name);
        if (file == _files.end()) {
            throw io::filesystem::LoadFileExceptionImpl("There is no file " + name);
        }
        return file->second;
    }
    void save(const std::string& name, const util::Bytes& data, std::uint32_t = 0) const override {
        const std::lock_guard guard(_mutex);
        if (failedSaveStays && failingSave == 1) {
            _files[name] = data;
        }
        fail<io::filesystem::SaveFileExceptionImpl>(failingSave, "The disk is full.");
        util::Bytes content = data;
        // Nothing fails from here on but the making of an entry, which comes first.
        _files[name] = std::move(content);
        ++_changes;
    }
    bool exists(const std::string& name) const noexcept override {
        const std::lock_guard guard(_mutex);
        return _files.count(name) != 0;
    }
    std::uint64_t size(const std::string& name, bool) const override {
        const std::lock_guard guard(_mutex);
        const auto file = _files.find(name);
        return file == _files.end() ? 0 : file->second.size();
    }
    void remove(const std::string& name) const override {
        const std::lock_guard guard(_mutex);
        fail<io::filesystem::RemoveFileException>(failingRemove, "The disk is read-only.");
        _changes += _files.erase(name);
    }

    void put(const std::string& name, const std::string& content) {
        const std::lock_guard guard(_mutex);
        _files[name] = util::Bytes(content.begin(), content.end());
    }
    std::vector<std::string> names() const {
        const std::lock_guard guard(_mutex);
        std::vector<std::string> names;
        for (const auto& file : _files) {
            names.push_back(file.first);
        }
        return names;
    }
    int loads() const {
        const std::lock_guard guard(_mutex);
        return _loads;
    }
    std::size_t changeCount() const {
        const std::lock_guard guard(_mutex);
        return _changes;
    }

private:
    template <class Failure>
    void fail(int& countdown, const char* text) const {
        if (countdown > 0 && --countdown == 0) {
            if (outOfMemory) {
                throw std::bad_alloc();
            }
            throw Failure(text);
        }
    }

    mutable std::mutex _mutex;
    mutable std::map<std::string, util::Bytes> _files;
    mutable std::size_t _changes = 0;
    mutable int _loads = 0;
};

}  // namespace support
