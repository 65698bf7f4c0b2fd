#pragma once

#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "server/Log.h"
#include "server/LogLevel.h"

namespace support {

// A log that remembers what it was told, from any thread.
class RecordingLog final : public halvern::morvane::Log {
public:
    struct Entry {
        std::uint32_t level;
        std::string text;
    };

    using Log::assertion;
    using Log::error;
    using Log::log;
    using Log::test;
    void log(const std::string& text) noexcept override { add(halvern::morvane::logLevel::log, text); }
    void error(const std::string& text) noexcept override { add(halvern::morvane::logLevel::error, text); }
    void test(const std::string& text) noexcept override { add(halvern::morvane::logLevel::test, text); }
    void assertion(const std::string& expression, const std::string& description, const std::string& file,
                   std::uint32_t) noexcept override {
        add(halvern::morvane::logLevel::failure, expression + "|" + description + "|" + file);
    }

    std::vector<Entry> entries() const {
        const std::lock_guard guard(_mutex);
        return _entries;
    }
    bool has(std::uint32_t level, const std::string& part) const {
        for (const Entry& entry : entries()) {
            if (entry.level == level && entry.text.find(part) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

private:
    void add(std::uint32_t level, const std::string& text) noexcept {
        const std::lock_guard guard(_mutex);
        try {
            _entries.push_back({level, text});
        } catch (const std::bad_alloc&) {
            // A log that has no memory is silent.
            return;
        }
    }

    mutable std::mutex _mutex;
    std::vector<Entry> _entries;
};

}  // namespace support
