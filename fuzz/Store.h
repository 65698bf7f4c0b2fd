#pragma once

#include <string>

#include "support/OldClassifier.h"
#include "support/StoredClassifier.h"
#include "util/Bytes.h"

// Stored classifiers, sound and damaged: what the store of the request target holds, and the first inputs of
// the targets that load classifiers.
namespace fuzz {

inline support::StoredClassifier twoClasses() {
    return {.classes = {{"eng", 0, 6, 3}, {"swe", 1, 4, 2}},
            .records = {{"", 0, 1}, {"a", 0, 2}, {"a", 1, 1}, {"hej", 1, 3}, {"text", 0, 3}}};
}

// The extractors that come from stored data alone.
inline support::StoredClassifier threeClasses(std::uint32_t extractorVersion) {
    support::StoredClassifier stored = {
        .classes = {{"one", 0, 2, 1}, {"t\xC3\xA5", 1, 5, 2}, {"<&\">", 2, 9, 2}},
        .records = {{"is", 0, 2}, {"is", 1, 1}, {"text", 1, 4}, {"is a", 2, 5}, {"english", 2, 4}}};
    stored.extractorVersion = extractorVersion;
    return stored;
}

// Loads, but gives no probabilities: any smoothing is taken as stored.
inline support::StoredClassifier smoothedBy(double smoothing) {
    support::StoredClassifier stored = twoClasses();
    stored.smoothing = smoothing;
    return stored;
}

inline support::OldClassifier oldClasses(std::uint32_t dataVersion) {
    return {.dataVersion = dataVersion,
            .classes = {{"eng", {{}, {{"a", 2}}, {{"is", 3}, {"to", 0}}, {}, {{"text", 1}}}},
                        {"swe", {{}, {{"a", 1}}, {}, {{"hej", 4}}}},
                        {"none", {}}}};
}

inline util::Bytes damaged(util::Bytes bytes) {
    bytes.resize(bytes.size() / 2);
    return bytes;
}

}  // namespace fuzz
