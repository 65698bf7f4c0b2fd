#pragma once

#include <cstdlib>
#include <new>

#include "support/FailingAllocation.h"

// The allocator of a whole program, so exactly one of its sources includes this.
// malloc and free stay those of the run time, so that the sanitizers keep watching.
void* operator new(std::size_t size) {
    if (support::FailingAllocation::mayAllocate()) {
        if (void* memory = std::malloc(size != 0 ? size : 1)) {
            return memory;
        }
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
