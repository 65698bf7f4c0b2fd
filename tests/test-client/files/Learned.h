#pragma once

#include <cmath>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/StoredClassifier.h"

namespace halvern::morvane::client::files {

// What a sound classifier holds, from which its bytes follow.
struct Learned {
    std::vector<std::string> classes;
    std::map<std::pair<std::string, std::uint16_t>, std::uint32_t> counts;  // by feature and class

    support::StoredClassifier stored() const {
        support::StoredClassifier stored;
        for (const std::string& name : classes) {
            stored.classes.push_back({name, static_cast<std::uint16_t>(stored.classes.size()), 0, 0});
        }
        for (const auto& [key, count] : counts) {
            stored.records.push_back({key.first, key.second, count});
            stored.classes[key.second].count += count;
            ++stored.classes[key.second].unique;
        }
        return stored;
    }
};

// Names and features are any bytes, mostly such as make trouble in JSON, and few enough for two of these to
// have some of them in common.
inline Learned randomLearned(std::mt19937& random) {
    const std::string pool("\0\x1f\"\\/a\x7f\x80\xc3\xa9\xed\xa0\xf0\x9f\x98\x80\xff", 17);
    Learned learned;
    for (std::size_t i = 0; i < pool.size(); ++i) {
        if (random() % 4 == 0) {
            learned.classes.insert(learned.classes.begin(), pool.substr(i, 1 + i % 3));
        }
    }
    for (std::size_t i = learned.classes.empty() ? 0 : random() % 60; i > 0; --i) {
        std::string feature(random() % 4 == 0 ? random() % 32 : random() % 3, ' ');
        for (char& byte : feature) {
            byte = random() % 9 == 0 ? static_cast<char>(random()) : pool[random() % pool.size()];
        }
        learned.counts[{feature, random() % learned.classes.size()}] = 1 + random() % 1000;
    }
    return learned;
}

}  // namespace halvern::morvane::client::files
