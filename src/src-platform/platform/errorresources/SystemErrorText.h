#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/errorresources/ErrorMapper.h"

namespace platform::errorresources {

// Puts a system error (an errno value, taken straight after the failing call) into words:
// "System error message: No such file or directory. Error code: 2."
// A code that the system has no text for takes the mapper's, if there is a mapper that knows it.
std::string systemErrorText(std::uint32_t code, const ErrorMapper* mapper = nullptr);

// The same into a buffer of size bytes, its terminating zero included, cut off where the buffer ends.
// Returns the length of the text. Needs no heap.
std::size_t writeSystemErrorText(char* buffer, std::size_t size, std::uint32_t code,
                                 const ErrorMapper* mapper) noexcept;

}  // namespace platform::errorresources
