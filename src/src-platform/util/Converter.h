#pragma once

#include <cstdint>

#include "exceptions/Exception.h"

namespace util {

// A number does not fit the type it has to go into.
class ConverterException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

// Narrowing of sizes and counts that may come from outside.
class Converter {
public:
    // Throws ConverterException for a value above 4294967295.
    static std::uint32_t toUnsigned32(std::uint64_t value);

    // Throws ConverterException for a value above 2147483647.
    static std::int32_t toSigned32(std::uint64_t value);
};

}  // namespace util
