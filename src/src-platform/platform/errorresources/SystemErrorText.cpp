#include "platform/errorresources/SystemErrorText.h"

#include <cstdio>
#include <cstring>

namespace platform::errorresources {

std::size_t writeSystemErrorText(char* buffer, std::size_t size, std::uint32_t code,
                                 const ErrorMapper* mapper) noexcept {
    if (size == 0) {
        return 0;
    }
    // strerrordesc_np tells an unknown code by null, where strerror would invent words for it.
    const char* words = strerrordesc_np(static_cast<int>(code));
    if (words == nullptr) {
        const ErrorMapper::Mapping mapping = mapper != nullptr ? mapper->map(static_cast<std::int32_t>(code))
                                                               : ErrorMapper::Mapping{false, nullptr};
        words = mapping.found ? mapping.text : "Error message not found";
    }
    const std::size_t length = std::strlen(words);
    const char* stop = length > 0 && words[length - 1] == '.' ? "" : ".";
    const int written =
        std::snprintf(buffer, size, "System error message: %s%s Error code: %u.", words, stop, code);
    if (written < 0) {
        buffer[0] = 0;
        return 0;
    }
    return static_cast<std::size_t>(written) < size ? static_cast<std::size_t>(written) : size - 1;
}

std::string systemErrorText(std::uint32_t code, const ErrorMapper* mapper) {
    char buffer[2048];
    return std::string(buffer, writeSystemErrorText(buffer, sizeof(buffer), code, mapper));
}

}  // namespace platform::errorresources
