#pragma once

#include <cstdint>

namespace platform::errorresources {

// Words for the error codes of one interface of the system.
class ErrorMapper {
public:
    struct Mapping {
        bool found;
        const char* text;  // valid only if found, and only as long as the mapper lives
    };

    virtual ~ErrorMapper() = default;
    virtual Mapping map(std::int32_t code) const = 0;
};

}  // namespace platform::errorresources
