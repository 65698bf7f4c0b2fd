#pragma once

#include <cstdint>
#include <string>

namespace halvern::morvane {

// The most that a byte of a request has been seen to cost in memory while the request is worked on, rounded
// up; docs/reliability.md tells how it is measured. Classifiers and answers are not in it.
inline constexpr std::int64_t MEMORY_OF_A_REQUEST_BYTE = 100;

// A sentence for the operator: what requests can cost at once. A limit below zero means that there is none.
std::string memoryOfRequests(std::int32_t maxInput, std::int32_t maxClients);

}  // namespace halvern::morvane
