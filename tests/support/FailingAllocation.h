#pragma once

#include <cstdint>

namespace support {

// While it lives, the k-th request for memory of this thread from here on fails, counted from 0, and all
// after it unless it is to be the only one. Works in programs that include support/ReplacedNew.h.
class FailingAllocation {
public:
    explicit FailingAllocation(std::int64_t k, bool forGood = true) {
        remaining = k;
        staysShort = forGood;
        armed = true;
    }
    ~FailingAllocation() { armed = false; }
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    // Asked by operator new.
    static bool mayAllocate() { return !armed || remaining-- > 0 || (remaining < -1 && !staysShort); }
    static bool hasFailed() { return remaining < 0; }

private:
    static inline thread_local bool armed = false;
    static inline thread_local bool staysShort = true;
    static inline thread_local std::int64_t remaining = 0;
};

}  // namespace support
