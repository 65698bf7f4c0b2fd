#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "util/Bytes.h"

namespace support {

// Builds stored bytes as earlier generations wrote them (versions 3 and 4), sound or not, without the code
// that reads them.
struct OldClassifier {
    using Chunks = std::vector<std::pair<std::string, std::uint32_t>>;
    struct Class {
        std::string name;
        std::vector<Chunks> lanes;  // by token length, in the order given

        util::Bytes laneBytes() const {
            util::Bytes out;
            append(out, static_cast<std::uint32_t>(lanes.size()));
            for (const Chunks& lane : lanes) {
                std::string chunks;
                for (const auto& [token, count] : lane) {
                    chunks += token + std::string(reinterpret_cast<const char*>(&count), sizeof(count));
                }
                appendText(out, chunks);
            }
            return out;
        }
    };

    std::uint32_t dataVersion = 3;
    std::vector<Class> classes = {};

    // The last class ends behind its name if it has no lanes.
    util::Bytes bytes() const {
        util::Bytes out;
        append(out, dataVersion);
        append(out, static_cast<std::uint32_t>(classes.size()));
        for (const Class& entry : classes) {
            appendText(out, entry.name);
            if (&entry != &classes.back() || !entry.lanes.empty()) {
                const util::Bytes lanes = entry.laneBytes();
                out.insert(out.end(), lanes.begin(), lanes.end());
            }
        }
        return out;
    }

private:
    static void append(util::Bytes& out, std::uint32_t value) {
        const char* const bytes = reinterpret_cast<const char*>(&value);
        out.insert(out.end(), bytes, bytes + sizeof(value));
    }
    static void appendText(util::Bytes& out, const std::string& text) {
        append(out, static_cast<std::uint32_t>(text.size()));
        out.insert(out.end(), text.begin(), text.end());
    }
};

}  // namespace support
