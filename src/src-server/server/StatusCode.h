#pragma once

#include <cstdint>

// What a client reads in the statusCode attribute of a response.
namespace halvern::morvane::statusCode {

inline constexpr std::int32_t OK = 2000;                 // the whole request ran
inline constexpr std::int32_t BAD_REQUEST = 4000;        // the request is at fault
inline constexpr std::int32_t REQUEST_TOO_LARGE = 4013;  // longer than the configured maximum input size
inline constexpr std::int32_t INTERNAL_ERROR = 5000;     // the server failed on a request that may be sound
inline constexpr std::int32_t OUT_OF_MEMORY = 5030;      // memory ran out; there is no text

}  // namespace halvern::morvane::statusCode
