#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace platform {

// Gives all who ask for the same name the same object, for as long as one of them holds it.
//
// This is what stands behind locks with a name: one process owns its root folder, so a table in the process
// is as good as a name in the system.
template <class Object>
class SharedByName {
public:
    // Makes the object with its default constructor if nobody holds it.
    std::shared_ptr<Object> get(const std::string& name) {
        const auto entry = enter(name);
        // Outside the lock, which the release takes if memory runs out here.
        return std::shared_ptr<Object>(&entry->second.object, Release{*this, entry});
    }

private:
    struct Entry {
        Object object;
        std::size_t holders = 0;
    };
    using Entries = std::map<std::string, Entry>;

    // The last holder leaves and the next one comes under the same lock, so what was done under the old
    // object is seen under the new one. A weak pointer that has expired would not promise that.
    struct Release {
        SharedByName& table;
        typename Entries::iterator entry;

        void operator()(Object*) const {
            const std::lock_guard guard(table._mutex);
            if (--entry->second.holders == 0) {
                table._entries.erase(entry);
            }
        }
    };

    typename Entries::iterator enter(const std::string& name) {
        const std::lock_guard guard(_mutex);
        const auto entry = _entries.try_emplace(name).first;
        ++entry->second.holders;
        return entry;
    }

    std::mutex _mutex;
    Entries _entries;
};

}  // namespace platform
