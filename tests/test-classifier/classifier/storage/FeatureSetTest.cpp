#include "classifier/storage/FeatureSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "classifier/ClassifierException.h"
#include "support/StoredClassifier.h"
#include "util/Pieces.h"
#include "util/database/DatabaseReader.h"

namespace halvern::classifier::storage {
namespace {

using support::StoredClassifier;

util::Bytes bytesOf(const FeatureSet& set) {
    util::Pieces pieces;
    set.serialize(pieces);
    util::Bytes bytes;
    pieces.appendTo(bytes);
    return bytes;
}

// A feature set, and beside it the counts that it should hold.
struct ModelledSet {
    FeatureSet set;
    std::vector<std::string> names;
    std::map<std::string, std::map<std::string, std::uint32_t>> counts;  // by feature and class

    // One feature alone or as a group of one.
    void change(const std::string& feature, const std::string& name, std::uint32_t amount, bool isAddition,
                bool isAlone) {
        std::uint32_t& held = counts[feature][name];
        const char* const bytes = feature.data();
        const FeatureCounts group{feature.size(), &bytes, &amount, 1};
        if (isAddition) {
            isAlone ? set.add(name, feature, amount) : set.addAll(name, {&group, 1});
            held += amount;
        } else {
            isAlone ? set.sub(name, feature, amount) : set.subAll(name, {&group, 1});
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
            set.lane(feature.size()).lookup(feature, accessor);
            EXPECT_EQ(accessor._parameters, expected);
            EXPECT_EQ(accessor.classes, holders);
            EXPECT_TRUE(holders == 0 ? accessor.feature == nullptr
                                     : std::string(accessor.feature, feature.size()) == feature);
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
        util::Pieces pieces;
        set.serialize(pieces);
        pieces.appendTo(bytes);
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
            // Where a copy shares the records, groups that are added in a row are put off, few or many.
            const std::unique_ptr<const FeatureSet> sharer(round % 2 == 1 ? new FeatureSet(model.set)
                                                                          : nullptr);
            const util::Bytes before = sharer ? bytesOf(*sharer) : util::Bytes();
            const bool isLong = round % 10 == 3;
            const unsigned others = isLong ? 100'000 : round % 4 == 1 ? 30 : 2;
            for (unsigned step = random() % (isLong ? 4000 : 100); step > 0; --step) {
                // Few letters at few places, so that keys come back often; the extreme bytes are among them.
                std::string feature(length, 'm');
                for (const std::size_t place : {std::size_t{0}, length / 2, length - 1}) {
                    if (place < length) {
                        feature[place] = "\0a\x7f\x80\xff"[random() % 5];
                    }
                }
                model.change(feature, model.names[random() % 4], 1 + random() % 3, random() % others != 0,
                             random() % others == 0);
            }
            if (round % 3 == 0) {
                FeatureSet copy(model.set);
                model.set.clear();
                EXPECT_EQ(model.set.lane(length).find(std::string(length, 'm'), 0), 0u);
                model.set.swap(copy);
            }
            model.set.compact();
            model.compare();
            EXPECT_TRUE(!sharer || bytesOf(*sharer) == before);
            if (round % 5 == 4) {
                // What comes and goes again leaves the set compact.
                for (int i = 0; i < 2 && length > 0; ++i) {
                    model.change(std::string(length, 'c'), model.names[3], 5, i == 0, i == 0);
                }
                model.removeClass(random() % 4);
                model.compare();
                util::Pieces pieces;
                model.set.serialize(pieces);
                const auto stored = std::make_shared<util::Bytes>();
                pieces.appendTo(*stored);
                util::database::DatabaseReader reader(*stored);
                model.set.deserialize(reader, round % 2 == 0 ? stored : nullptr);
                EXPECT_TRUE(reader.atEnd());
            }
        }
    }
}

// All features of one text: new and known ones, more than are searched for together, with one in the last
// place that has no room for more.
TEST(FeatureSetTest, TakesAGroupOfFeaturesWholeOrNotAtAll) {
    std::vector<std::string> names;
    std::vector<const char*> features;
    for (int i = 0; i < 40; ++i) {
        names.push_back("f" + std::to_string(10 + i));
    }
    for (const std::string& name : names) {
        features.push_back(name.data());
    }
    // A total that was stored too small lets a single count run full before the total does.
    StoredClassifier full;
    full.classes = {{"a", 0, 7, 2}};
    full.records = {{"f15", 0, 7}, {names.back(), 0, UINT32_MAX}};
    const util::Bytes whole = full.bytes();
    for (const bool isShared : {false, true}) {
        util::database::DatabaseReader reader(std::span<const char>(whole).subspan(16));
        FeatureSet set;
        set.deserialize(reader);
        const FeatureSet before(set);
        if (!isShared) {
            util::database::DatabaseReader again(std::span<const char>(whole).subspan(16));
            set.deserialize(again);
        }
        const std::vector<std::uint32_t> counts(features.size(), 2);
        const char* const other = "ab";
        const FeatureCounts groups[] = {{3, features.data(), counts.data(), features.size() - 1},
                                        {2, &other, counts.data(), 1},
                                        {3, features.data(), counts.data(), features.size()}};
        EXPECT_THROW(set.addAll("a", {groups + 1, 2}), ClassifierException) << "the last has no room";
        set.compact();
        EXPECT_EQ(bytesOf(set), bytesOf(before));
        set.addAll("a", {groups, 1});
        EXPECT_EQ(set.classes()[0]._unique, 2u + 38u);
        set.subAll("a", {groups, 1});
        set.compact();
        EXPECT_EQ(bytesOf(set), bytesOf(before));
        EXPECT_EQ(bytesOf(before), util::Bytes(whole.begin() + 16, whole.end()));
    }
}

// Nothing keeps stored data from naming a class twice.
TEST(FeatureSetTest, FindsTheFirstOfTwoClassesOfOneName) {
    StoredClassifier stored;
    stored.classes = {{"b", 0, 0, 0}, {"c", 1, 0, 0}, {"b", 2, 0, 0}, {"a", 3, 0, 0}, {"b", 4, 0, 0}};
    const util::Bytes whole = stored.bytes();
    util::database::DatabaseReader reader(std::span<const char>(whole).subspan(16));
    FeatureSet set;
    set.deserialize(reader);
    for (const std::string left : {"bcbab", "cbab", "cab", "ca"}) {
        for (const ClassEntry& entry : set.classes()) {
            EXPECT_EQ(set.getClass(entry.name)._classIndex, left.find(entry.name)) << left;
        }
        if (left.find('b') == std::string::npos) {
            EXPECT_THROW(set.removeClass("b"), ClassifierException);
        } else {
            set.removeClass("b");
        }
    }
    set.addClass("b");
    EXPECT_EQ(set.getClass("b")._classIndex, 2);
}

// More than is kept in a row before it is combined.
TEST(FeatureSetTest, CountsWhatIsAddedOverAndOver) {
    FeatureSet set;
    set.addClass("a");
    set.addClass("b");
    const char* const features[] = {"one", "two", "old"};
    const std::uint32_t counts[] = {1, 2, 3};
    const FeatureCounts old{3, features + 2, counts + 2, 1};
    const FeatureCounts group{3, features, counts, 3};
    set.addAll("b", {&old, 1});
    set.compact();
    const FeatureSet sharer(set);
    const std::uint32_t times = 50'000;
    for (std::uint32_t i = 0; i < times; ++i) {
        set.addAll("b", {&group, 1});
    }
    set.compact();
    EXPECT_EQ(set.classes()[1]._unique, 3u);
    EXPECT_EQ(set.classes()[1]._count, 3 + 6 * times);
    EXPECT_EQ(set.lane(3).find("one", 1), times);
    EXPECT_EQ(set.lane(3).find("two", 1), 2 * times);
    EXPECT_EQ(set.lane(3).find("old", 1), 3 + 3 * times);
    EXPECT_EQ(set.lane(3).uniqueFeatures(), 3u);
}

}  // namespace halvern::classifier::storage
