#include "server/Memory.h"

#include "util/FixedStream.h"

namespace halvern::morvane {

std::string memoryOfRequests(std::int32_t maxInput, std::int32_t maxClients) {
    if (maxInput < 0) {
        return "There is no limit on the size of a request, and so none on the memory that requests can "
               "take.";
    }
    const double bytes = static_cast<double>(MEMORY_OF_A_REQUEST_BYTE) * maxInput * maxClients;
    util::FixedStream<512> text;
    text << "Requests can take at most " << static_cast<std::uint64_t>(bytes / 1'000'000)
         << "MB at once: " << MEMORY_OF_A_REQUEST_BYTE << " times " << maxInput << " bytes for each of "
         << maxClients << " clients. Classifiers and answers are not in that.";
    return text.str();
}

}  // namespace halvern::morvane
