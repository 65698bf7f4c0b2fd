#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "debug/Assertion.h"

// The small records of which everything learned consists. There may be many millions of a FeatureRecord, so
// it has no padding; its bytes in memory are also its bytes in the stored data, all numbers little-endian.
namespace halvern::classifier::storage {

// How often one feature was trained into one class.
class [[gnu::packed]] Parameter {
public:
    Parameter() = default;
    Parameter(std::uint16_t classIndex, std::uint32_t count) : _classIndex(classIndex), _count(count) {}

    std::uint16_t classIndex() const { return _classIndex; }
    std::uint32_t count() const { return _count; }

    // Wraps past 32 bits; whoever adds has seen to it that there is room.
    void add(std::uint32_t amount) { _count += amount; }
    // Takes off at most what is there, and returns what was taken off.
    std::uint32_t sub(std::uint32_t amount) {
        const std::uint32_t taken = amount < _count ? amount : _count;
        _count -= taken;
        return taken;
    }
    // Follows the removal of a class with a lower index.
    void packClassIndex() {
        const std::uint16_t classIndex = static_cast<std::uint16_t>(_classIndex - 1);
        CHECK(classIndex == _classIndex - 1, "Packing class indexes seems wrong");
        _classIndex = classIndex;
    }

private:
    std::uint16_t _classIndex;
    std::uint32_t _count;
};
static_assert(sizeof(Parameter) == 6 && alignof(Parameter) == 1);

// The bytes of a feature as numbers that order as the bytes do, the first byte being the most significant.
// Where N is no multiple of the word, the last word overlaps the one before, whose bytes are equal by the
// time it is asked.
template <std::size_t N>
std::uint64_t featureWord(const char* feature, std::size_t index) {
    const auto load = [feature]<class Word>(std::size_t offset, Word word) -> std::uint64_t {
        std::memcpy(&word, feature + offset, sizeof(word));
        if constexpr (sizeof(Word) == 8) {
            return __builtin_bswap64(word);
        } else if constexpr (sizeof(Word) == 4) {
            return __builtin_bswap32(word);
        } else {
            return __builtin_bswap16(word);
        }
    };
    if constexpr (N >= 8) {
        return load(index * 8 < N - 8 ? index * 8 : N - 8, std::uint64_t{});
    } else if constexpr (N >= 4) {
        return load(0, std::uint32_t{}) << 32 | load(N - 4, std::uint32_t{});
    } else if constexpr (N >= 2) {
        return load(0, std::uint16_t{}) << 16 | load(N - 2, std::uint16_t{});
    } else {
        return static_cast<unsigned char>(*feature);
    }
}

// Whether the one comes before the other as memcmp has it. A lookup spends its time here. The last word is
// compared without a branch, so that a search can choose its half by a conditional move.
template <std::size_t N>
bool isFeatureBelow(const char* left, const char* right) {
    constexpr std::size_t words = (N + 7) / 8;
    for (std::size_t i = 0; i < words; ++i) {
        const std::uint64_t leftWord = featureWord<N>(left, i);
        const std::uint64_t rightWord = featureWord<N>(right, i);
        if (i + 1 == words || leftWord != rightWord) {
            return leftWord < rightWord;
        }
    }
    return false;
}

template <std::size_t N>
bool isSameFeature(const char* left, const char* right) {
    return std::memcmp(left, right, N) == 0;
}
// The filler byte is no part of the empty feature, whose text may be a null pointer.
template <>
inline bool isSameFeature<0>(const char*, const char*) {
    return true;
}

// One pair of a feature of N bytes and a class. The key is (feature, class index), the count isn't part of
// it. Records order by their features, and those of one feature by class. The empty feature leaves one byte
// of filler in front of the parameter, which has no meaning.
template <std::size_t N>
struct FeatureRecord {
    static constexpr std::size_t featureBytes = N == 0 ? 1 : N;

    FeatureRecord() = default;
    // Requires text.size() == N.
    FeatureRecord(std::string_view text, std::uint16_t classIndex, std::uint32_t count)
        : feature{}, parameter(classIndex, count) {
        if constexpr (N > 0) {
            std::memcpy(feature, text.data(), N);
        }
    }

    // The last word goes without a branch, as in isFeatureBelow.
    bool operator<(const FeatureRecord& other) const {
        const bool isClassBelow = parameter.classIndex() < other.parameter.classIndex();
        for (std::size_t i = 0; i < words; ++i) {
            const std::uint64_t mine = word(i);
            const std::uint64_t others = other.word(i);
            if (i + 1 == words) {
                return (mine < others) | ((mine == others) & isClassBelow);
            }
            if (mine != others) {
                return mine < others;
            }
        }
        return isClassBelow;
    }
    bool operator==(const FeatureRecord& other) const {
        return parameter.classIndex() == other.parameter.classIndex() &&
               isSameFeature<N>(feature, other.feature);
    }
    // Of the key; never stored. Takes the bytes as signed, although the order takes them as unsigned. Keys
    // can be built that share it.
    std::uint64_t hash() const {
        std::uint64_t seed = 0;
        for (std::size_t i = 0; i < N; ++i) {
            seed = combined(seed, static_cast<std::uint64_t>(
                                      static_cast<std::int64_t>(static_cast<signed char>(feature[i]))));
        }
        return combined(combined(0, seed), parameter.classIndex());
    }
    // The feature as a row of so many numbers.
    static constexpr std::size_t words = (N + 7) / 8;
    std::uint64_t word(std::size_t index) const { return featureWord<N>(feature, index); }

    char feature[featureBytes];
    Parameter parameter;

private:
    static std::uint64_t combined(std::uint64_t seed, std::uint64_t value) {
        return seed ^ (value + 0x9e3779b9u + (seed << 6) + (seed >> 2));
    }
};
static_assert(sizeof(FeatureRecord<0>) == 7 && sizeof(FeatureRecord<1>) == 7 &&
              sizeof(FeatureRecord<5>) == 11 && sizeof(FeatureRecord<31>) == 37 &&
              alignof(FeatureRecord<31>) == 1);

// The records of one feature where they lie in its lane, in the order of their classes. Good until the lane
// next changes.
struct FeatureRecords {
    // Requires index < size. Not a copy: reading one whole what was copied in parts costs more than the rest.
    const Parameter& operator[](std::size_t index) const {
        return *reinterpret_cast<const Parameter*>(feature + (index + 1) * stride - sizeof(Parameter));
    }

    const char* feature = nullptr;  // the first record; null for an unknown feature
    std::uint32_t size = 0;         // number of records, which is that of the classes that hold the feature
    std::uint32_t stride = 0;       // bytes of a record
};

// What all classes know of one feature: the answer of a lane's lookup. Its owner makes it once for the
// present number of classes and uses it for feature after feature, so that a lookup allocates nothing.
class ParameterAccessor {
public:
    explicit ParameterAccessor(std::size_t classCount) : _parameters(classCount, 0) {}

    // Forgets the feature; the number of classes stays.
    void reset();
    void setFeaturePtr(const char* featurePtr) {
        CHECK(featurePtr != nullptr, "Setting null feature ptr");
        feature = featurePtr;
    }
    void add(Parameter parameter) {
        CHECK(parameter.classIndex() < _parameters.size(), "The parameter accessor array is to short");
        CHECK(_parameters[parameter.classIndex()] == 0, "Overwriting a parameter accessor count");
        _parameters[parameter.classIndex()] = parameter.count();
        ++classes;
        total += parameter.count();
    }

    const char* feature = nullptr;           // the lane's own bytes; null for an unknown feature
    std::vector<std::uint32_t> _parameters;  // by class index; 0 where the class doesn't hold the feature
    std::uint16_t classes = 0;               // number of classes that hold the feature
    std::uint32_t total = 0;                 // sum over all classes, modulo 2^32
};

// A row of the class table.
struct ClassEntry {
    void addUnique() { ++_unique; }
    void removeUnique();
    void addCount(std::uint32_t count) { _count += count; }
    void removeCount(std::uint32_t count);

    std::string name;               // not empty, unique in its table
    std::uint16_t _classIndex = 0;  // the row's place in the table, and the class's name in the lanes
    std::uint32_t _count = 0;       // sum of the counts of the class's records
    std::uint32_t _unique = 0;      // number of the class's records
};

}  // namespace halvern::classifier::storage
