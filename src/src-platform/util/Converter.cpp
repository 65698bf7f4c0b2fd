#include "util/Converter.h"

#include <limits>

#include "util/FixedStream.h"

namespace util {

namespace {

template <class Target>
Target narrowTo(std::uint64_t value) {
    constexpr std::uint64_t limit = std::numeric_limits<Target>::max();
    if (value > limit) {
        FixedStream<4096> message;
        message << "Conversion failed. The supplied number, " << value << ", is larger than the max value, "
                << limit << " of the destination type.";
        throw ConverterException(message.str());
    }
    return static_cast<Target>(value);
}

}  // namespace

std::uint32_t Converter::toUnsigned32(std::uint64_t value) { return narrowTo<std::uint32_t>(value); }

std::int32_t Converter::toSigned32(std::uint64_t value) { return narrowTo<std::int32_t>(value); }

}  // namespace util
