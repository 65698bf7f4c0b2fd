#pragma once

#include <cstddef>

// What the XML library calls back: for memory, and for the files that a document refers to.
namespace windows::com::xml::hooks {

// Notices that memory ran out inside the library, on this thread, since the watch was made.
//
// The library reports it in many ways, a truncated document or an empty result among them. So a watch stands
// around each use of the library, and no result counts before check() has passed.
class MemoryWatch {
public:
    MemoryWatch() noexcept;

    bool ranOut() const noexcept;

    // Throws std::bad_alloc if memory ran out.
    void check() const;
};

// Called once, on the thread whose memory ran out, at the first failure inside an operation: a way to cut
// short what the operation has before it. Set back at the end of the scope.
class ScopedStop {
public:
    using Stop = void (*)(void* operation);
    ScopedStop(Stop stop, void* operation) noexcept;
    ~ScopedStop();
    ScopedStop(const ScopedStop&) = delete;
    ScopedStop& operator=(const ScopedStop&) = delete;
};

// Says that memory ran out in one of our own functions that the library calls, which must not throw.
void noteExhaustion() noexcept;

// Lets the library open local files while it lives, on this thread. Without one it opens nothing.
class ScopedExternals {
public:
    explicit ScopedExternals(bool permitted) noexcept;
    ~ScopedExternals();
    ScopedExternals(const ScopedExternals&) = delete;
    ScopedExternals& operator=(const ScopedExternals&) = delete;

private:
    bool _before;
};

// Where the library's memory comes from: std::realloc, or what a test puts in its place.
using Reallocate = void* (*)(void* block, std::size_t size);
void setReallocate(Reallocate reallocate) noexcept;

// Gives the library the hooks. Not while another thread uses it.
void install();

}  // namespace windows::com::xml::hooks
