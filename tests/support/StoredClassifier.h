#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "util/Bytes.h"

namespace support {

// Builds the stored bytes of a classifier, sound or not, without the code that reads and writes them.
struct StoredClassifier {
    struct Class {
        std::string name;
        std::uint16_t index;
        std::uint32_t count;
        std::uint32_t unique;
    };
    struct Record {
        std::string feature;  // goes to the lane of its length, in the order given
        std::uint16_t classIndex;
        std::uint32_t count;
    };

    std::uint32_t dataVersion = 5;
    std::uint32_t extractorVersion = 5;
    double smoothing = 0.05;
    std::vector<Class> classes = {};
    std::vector<Record> records = {};

    util::Bytes bytes() const {
        util::Bytes out;
        append(out, dataVersion);
        append(out, extractorVersion);
        append(out, smoothing);
        append(out, static_cast<std::uint16_t>(classes.size()));
        for (const Class& entry : classes) {
            append(out, static_cast<std::uint32_t>(entry.name.size()));
            out.insert(out.end(), entry.name.begin(), entry.name.end());
            append(out, entry.index);
            append(out, entry.count);
            append(out, entry.unique);
        }
        for (std::size_t length = 0; length < 32; ++length) {
            util::Bytes lane;
            std::uint32_t count = 0;
            for (const Record& record : records) {
                if (record.feature.size() == length) {
                    lane.insert(lane.end(), record.feature.begin(), record.feature.end());
                    lane.insert(lane.end(), length == 0 ? 1 : 0, 0);  // the empty feature's filler
                    append(lane, record.classIndex);
                    append(lane, record.count);
                    ++count;
                }
            }
            append(out, count);
            out.insert(out.end(), lane.begin(), lane.end());
        }
        return out;
    }

private:
    template <class T>
    static void append(util::Bytes& out, T value) {
        const char* const bytes = reinterpret_cast<const char*>(&value);
        out.insert(out.end(), bytes, bytes + sizeof(T));
    }
};

}  // namespace support
