#include "classifier/storage/FeatureSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "support/StoredClassifier.h"
#include "util/database/DatabaseReader.h"

namespace halvern::classifier::storage {
namespace {

using support::StoredClassifier;

// A feature set, and beside it the counts that it should hold.
struct ModelledSet {
    FeatureSet set;
    std::vector<std::string> names;
    std::map<std::string, std::map<std::string, std::uint32_t>> counts;  // by feature and class

    void change(const std::string& feature, const std::string& name, std::uint32_t amount, bool isAddition) {
        std::uint32_t& held = counts[feature][name];
        if (isAddition) {
            set.add(name, feature, amount);
            held += amount;
        } else {
            set.sub(name, feature, amount);
            held -= std::min(held, amount);
        }
    }

    void removeClass(std::size_t place) {
        set.removeClass(names[place]);
        for (auto& [feature, held] : counts) {
            held.erase(names[place]);
        }
        names.erase(names.begin() + place);
    }

    // Many features looked up at once, those at either end twice, are found as each of them alone.
    void compareAll(std::size_t length, ParameterAccessor& accessor) {
        std::vector<const char*> features;
        for (const auto& [feature, held] : counts) {
            if (feature.size() == length) {
                features.push_back(feature.data());
            }
        }
        if (!features.empty()) {
            features.insert(features.end(), {features.back(), features.front()});
        }
        std::vector<FeatureRecords> found(features.size());
        set.lane(length).lookupAll(features.data(), features.size(), found.data());
        for (std::size_t i = 0; i < features.size(); ++i) {
            set.lane(length).lookup(std::string_view(features[i], length), accessor);
            EXPECT_EQ(found[i].feature, accessor.feature);
            ASSERT_EQ(found[i].size, accessor.classes);
            for (std::size_t holder = 0; holder < found[i].size; ++holder) {
                const Parameter& parameter = found[i][holder];
                EXPECT_EQ(parameter.count(), accessor._parameters[parameter.classIndex()]);
            }
        }
    }

    // The set has the bytes of the model, and each feature is found.
    void compare() {
        StoredClassifier stored;
        for (const std::string& name : names) {
            stored.classes.push_back({name, static_cast<std::uint16_t>(stored.classes.size()), 0, 0});
        }
        ParameterAccessor accessor(names.size());
        for (auto& [feature, held] : counts) {
            std::vector<std::uint32_t> expected;
            for (StoredClassifier::Class& entry : stored.classes) {
                expected.push_back(held[entry.name]);
                if (expected.back() > 0) {
                    entry.count += expected.back();
                    ++entry.unique;
                    stored.records.push_back({feature, entry.index, expected.back()});
                }
            }
            const auto holders = names.size() - std::count(expected.begin(), expected.end(), 0u);
            EXPECT_EQ(&set.lane(feature.size()).lookup(feature, accessor), &accessor);
            EXPECT_EQ(accessor._parameters, expected);
            EXPECT_EQ(accessor.classes, holders);
            EXPECT_EQ(accessor.feature == nullptr, holders == 0);
            EXPECT_TRUE(holders == 0 || std::string(accessor.feature, feature.size()) == feature);
            EXPECT_EQ(set.lane(feature.size()).find(feature, 1), expected[1]);
        }
        for (std::size_t i = 0; i < names.size(); ++i) {
            EXPECT_EQ((*set.classNames())[i], names[i]);
        }
        for (std::size_t length = 0; length < FeatureSet::laneCount; ++length) {
            compareAll(length, accessor);
        }
        const util::Bytes whole = stored.bytes();
        const std::ptrdiff_t headerSize = 16;
        util::Bytes bytes(whole.begin(), whole.begin() + headerSize);
        set.serialize(bytes);
        EXPECT_EQ(bytes, whole);
    }
};

}  // namespace

TEST(FeatureSetTest, BehavesAsMapsOfCounts) {
    std::mt19937 random(42);
    for (std::size_t length = 0; length < 32; ++length) {
        ModelledSet model;
        for (int round = 0; round < 20 && !HasFailure(); ++round) {
            SCOPED_TRACE(length);
            while (model.names.size() < 4) {
                model.names.push_back("class" + std::to_string(random()));
                model.set.addClass(model.names.back());
            }
            for (unsigned step = random() % (round == 10 ? 2000 : 100); step > 0; --step) {
                // Few letters at few places, so that keys come back often; the extreme bytes are among them.
                std::string feature(length, 'm');
                for (const std::size_t place : {std::size_t{0}, length / 2, length - 1}) {
                    if (place < length) {
                        feature[place] = "\0a\x7f\x80\xff"[random() % 5];
                    }
                }
                model.change(feature, model.names[random() % 4], 1 + random() % 3, random() % 2 == 0);
            }
            if (round % 3 == 0) {
                FeatureSet copy(model.set);
                model.set.clear();
                model.set.swap(copy);
            }
            model.set.compact();
            model.compare();
            if (round % 5 == 4) {
                model.removeClass(random() % 4);
                model.compare();
                util::Bytes stored;
                model.set.serialize(stored);
                util::database::DatabaseReader reader(stored);
                model.set.deserialize(reader);
                EXPECT_TRUE(reader.atEnd());
            }
        }
    }
}

}  // namespace halvern::classifier::storage
