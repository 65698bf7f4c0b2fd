#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "classifier/storage/MemoryLane.h"
#include "util/Bytes.h"

namespace util::database {
class DatabaseReader;
}

namespace halvern::classifier::storage {

// What one class of the old data holds: tokens with their counts.
class TokenDistribution {
public:
    virtual ~TokenDistribution() = default;

    // Null and 0 for an unknown token. The bytes are good until the distribution changes.
    virtual StoredToken find(const char* bytes, std::size_t length) const = 0;
    // 0 for an unknown token.
    virtual std::uint32_t getCount(const std::string& token) const = 0;
    virtual std::uint32_t getCount(const char* bytes, std::size_t length) const = 0;
    // Modulo 2^32.
    virtual std::uint32_t getTotalCount() const = 0;
    // Returns the token's new count. Requires count > 0, and a token for whose length there is a lane.
    virtual std::uint32_t add(const std::string& token, std::uint32_t count) = 0;
    // Takes off at most what the token has, and returns what remains. Requires count > 0.
    virtual std::uint32_t sub(const std::string& token, std::uint32_t count) = 0;
    // Adds to the number of tokens of each count, and returns the map.
    virtual std::map<std::uint32_t, std::uint64_t>& getHistogram(
        std::map<std::uint32_t, std::uint64_t>& histogram) const = 0;
    virtual void clear() = 0;
    virtual void compact() = 0;
    virtual std::uint64_t getUniqueCount() const = 0;
    // Replaces the content; data that is at its end gives an empty distribution. Throws
    // DatabaseReaderException for data that is cut off, or a lane that isn't made of whole tokens.
    virtual void deserialize(util::database::DatabaseReader& reader) = 0;
    // Appends the form that deserialize reads.
    virtual void serialize(util::Bytes& out) const = 0;
};

class TokenDistributionImpl final : public TokenDistribution {
public:
    // Has lanes for tokens of 0 to maxTokenSize bytes.
    explicit TokenDistributionImpl(std::uint32_t maxTokenSize);

    StoredToken find(const char* bytes, std::size_t length) const override;
    std::uint32_t getCount(const std::string& token) const override;
    std::uint32_t getCount(const char* bytes, std::size_t length) const override;
    std::uint32_t getTotalCount() const override;
    std::uint32_t add(const std::string& token, std::uint32_t count) override;
    std::uint32_t sub(const std::string& token, std::uint32_t count) override;
    std::map<std::uint32_t, std::uint64_t>& getHistogram(
        std::map<std::uint32_t, std::uint64_t>& histogram) const override;
    void clear() override;
    void compact() override;
    std::uint64_t getUniqueCount() const override;
    void deserialize(util::database::DatabaseReader& reader) override;
    void serialize(util::Bytes& out) const override;

    // Calls visit(token, count) for all tokens, the shortest first, those with count 0 included.
    template <class Visit>
    void forEach(const Visit& visit) const {
        for (const MemoryLane& lane : _lanes) {
            lane.forEach(visit);
        }
    }

private:
    std::vector<MemoryLane> _lanes;  // by token length
};

}  // namespace halvern::classifier::storage
