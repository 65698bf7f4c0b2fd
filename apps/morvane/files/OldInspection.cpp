#include "files/OldInspection.h"

#include <cstring>
#include <unordered_set>

#include "files/Cursor.h"

namespace halvern::morvane::client::files {
namespace {

using classifier::storage::FeatureSet;

class OldInspector {
public:
    OldInspector(const util::Bytes& data, Inspection& result)
        : _cursor(data), _complaints(result.complaints), _notes(result.notes) {}

    void inspect() {
        std::uint32_t version = 0;
        std::uint32_t classCount = 0;
        _cursor.take(version);
        const std::uint64_t offset = _cursor.offset();
        if (!_cursor.take(classCount)) {
            cutOff("header", "the number of classes");
            return;
        }
        if (classCount > FeatureSet::maxClasses) {
            _complaints.add(offset, "header",
                            std::to_string(classCount) + " classes, and a classifier holds at most " +
                                std::to_string(FeatureSet::maxClasses));
        }
        for (std::uint32_t i = 0; i < classCount; ++i) {
            if (!inspectClass("class block " + std::to_string(i))) {
                return;
            }
        }
        if (_cursor.remaining() > 0) {
            _notes.push_back(std::to_string(_cursor.remaining()) +
                             " bytes behind the last class, which nobody reads");
        }
    }

private:
    bool cutOff(const std::string& place, const char* what) {
        _complaints.add(_cursor.offset(), place, "the data ends inside " + std::string(what));
        return false;
    }

    bool inspectClass(const std::string& block) {
        const std::uint64_t nameOffset = _cursor.offset();
        std::uint32_t length = 0;
        std::string_view name;
        if (!_cursor.take(length) || !_cursor.take(name, length)) {
            return cutOff(block, "the name");
        }
        const std::string place = block + " (" + inQuotes(name) + ")";
        if (name.empty()) {
            _complaints.add(nameOffset, block, "the name is empty");
        } else if (!_names.insert(name).second) {
            _complaints.add(nameOffset, block, "the name " + inQuotes(name) + " stands twice");
        }
        // The last class may end behind its name.
        if (_cursor.remaining() == 0) {
            return true;
        }
        std::uint32_t laneCount = 0;
        if (!_cursor.take(laneCount)) {
            return cutOff(place, "the number of lanes");
        }
        std::uint64_t total = 0;
        for (std::uint64_t tokenSize = 0; tokenSize < laneCount; ++tokenSize) {
            if (!inspectLane(place + ", lane " + std::to_string(tokenSize), tokenSize, total)) {
                return false;
            }
        }
        if (total > UINT32_MAX) {
            _complaints.add(nameOffset, place,
                            "its counts sum up to " + std::to_string(total) + ", which is beyond 32 bits");
        }
        return true;
    }

    bool inspectLane(const std::string& place, std::uint64_t tokenSize, std::uint64_t& total) {
        const std::uint64_t sizeOffset = _cursor.offset();
        std::uint32_t size = 0;
        if (!_cursor.take(size)) {
            return cutOff(place, "the size");
        }
        const std::uint64_t first = _cursor.offset();
        std::string_view chunks;
        if (!_cursor.take(chunks, size)) {
            _complaints.add(sizeOffset, place,
                            "it should have " + std::to_string(size) + " bytes, and only " +
                                std::to_string(_cursor.remaining()) + " are left");
            return false;
        }
        const std::uint64_t chunkSize = tokenSize + sizeof(std::uint32_t);
        if (size % chunkSize != 0) {
            _complaints.add(sizeOffset, place,
                            "its " + std::to_string(size) + " bytes are no multiple of a chunk's " +
                                std::to_string(chunkSize));
        }
        for (std::uint64_t at = 0; at + chunkSize <= chunks.size(); at += chunkSize) {
            const std::string_view token = chunks.substr(at, tokenSize);
            std::uint32_t count = 0;
            std::memcpy(&count, token.data() + tokenSize, sizeof(count));
            total += count;
            const auto complain = [&](const char* problem) {
                _complaints.add([&] {
                    return Complaint{
                        first + at,
                        place + ", chunk " + std::to_string(at / chunkSize) + " (" + inQuotes(token) + ")",
                        problem};
                });
            };
            if (at > 0) {
                const int order = chunks.substr(at - chunkSize, tokenSize).compare(token);
                if (order >= 0) {
                    complain(order == 0 ? "the same token stands in the chunk before"
                                        : "it should stand before the chunk before it");
                }
            }
            if (tokenSize >= FeatureSet::laneCount && count > 0) {
                complain("the token is too long to be stored");
            }
        }
        return true;
    }

    Cursor _cursor;
    Complaints& _complaints;
    std::vector<std::string>& _notes;
    std::unordered_set<std::string_view> _names;
};

}  // namespace

void inspectOld(const util::Bytes& data, Inspection& result) {
    result.notes.push_back("data version " + std::to_string(result.dataVersion) +
                           ", which earlier generations wrote; the server reads it, and writes version 5 at "
                           "the next commit");
    OldInspector(data, result).inspect();
}

}  // namespace halvern::morvane::client::files
