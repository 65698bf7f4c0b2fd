#pragma once

#include <string>

namespace support {

// The text of the exception of this kind that the operation throws.
template <class Expected, class Operation>
std::string failureOf(const Operation& operation) {
    try {
        operation();
    } catch (const Expected& failure) {
        return failure.what();
    }
    return "nothing was thrown";
}

}  // namespace support
