#include "windows/com/xml/LibraryHooks.h"

#include <libxml/parser.h>
#include <libxml/xmlIO.h>
#include <libxml/xmlmemory.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

namespace windows::com::xml::hooks {

namespace {

thread_local bool memoryRanOut = false;
thread_local ScopedStop::Stop stop = nullptr;
thread_local void* stopped = nullptr;
thread_local bool externalsPermitted = false;
std::atomic<Reallocate> source{&std::realloc};

// Blocks for operations that have run out of memory already.
//
// Parts of the library use a block without looking whether they got it. With these blocks they reach their
// end, where the watch turns the operation into std::bad_alloc. All is free again when the last block is.
//
// The largest use is the comparison of the ids at the end of a validation, which nothing cuts short: 9 MB
// were seen for 100,000 calls.
class Reserve {
public:
    void* take(std::size_t size) noexcept {
        const std::size_t needed =
            sizeof(Header) + (size + alignof(Header) - 1) / alignof(Header) * alignof(Header);
        const std::lock_guard lock(_mutex);
        if (size > sizeof(_bytes) || sizeof(_bytes) - _used < needed) {
            return nullptr;
        }
        auto* header = new (_bytes + _used) Header{size};
        _used += needed;
        ++_blocks;
        return header + 1;
    }

    bool owns(const void* block) const noexcept {
        const auto address = reinterpret_cast<std::uintptr_t>(block);
        const auto start = reinterpret_cast<std::uintptr_t>(_bytes);
        return address >= start && address < start + sizeof(_bytes);
    }

    static std::size_t sizeOf(const void* block) noexcept {
        return (static_cast<const Header*>(block) - 1)->size;
    }

    void giveBack() noexcept {
        const std::lock_guard lock(_mutex);
        if (--_blocks == 0) {
            _used = 0;
        }
    }

private:
    struct alignas(std::max_align_t) Header {
        std::size_t size;
    };

    std::mutex _mutex;
    std::size_t _used = 0;
    std::size_t _blocks = 0;
    alignas(std::max_align_t) unsigned char _bytes[64UL * 1024 *
                                                   1024];  // what is never touched is never resident
};

Reserve reserve;

void release(void* block) noexcept {
    if (reserve.owns(block)) {
        reserve.giveBack();
    } else {
        std::free(block);
    }
}

void* allocateFor(void* block, std::size_t size) noexcept {
    // A block of no size would be freed, which looks like memory that ran out with the block still there.
    void* const fresh = source.load(std::memory_order_relaxed)(block, std::max<std::size_t>(size, 1));
    if (fresh == nullptr) {
        memoryRanOut = true;
        if (const auto stopOnce = std::exchange(stop, nullptr)) {
            stopOnce(stopped);
        }
    }
    return fresh;
}

void* reallocate(void* block, std::size_t size) noexcept {
    const bool spare = reserve.owns(block);
    void* fresh = allocateFor(spare ? nullptr : block, size);
    if (fresh != nullptr && !spare) {
        return fresh;
    }
    if (fresh == nullptr) {
        fresh = reserve.take(size);
    }
    if (fresh != nullptr && block != nullptr) {
        std::memcpy(fresh, block, std::min(size, spare ? Reserve::sizeOf(block) : malloc_usable_size(block)));
        release(block);
    }
    return fresh;
}

void* allocate(std::size_t size) noexcept { return reallocate(nullptr, size); }

char* duplicate(const char* text) noexcept {
    const std::size_t size = std::strlen(text) + 1;
    void* const copy = allocate(size);
    return copy == nullptr ? nullptr : static_cast<char*>(std::memcpy(copy, text, size));
}

xmlParserInputPtr openExternal(const char* url, const char* id, xmlParserCtxtPtr context) {
    return externalsPermitted ? xmlNoNetExternalEntityLoader(url, id, context) : nullptr;
}

// Errors come back from the operation that failed. What is left are words about memory, which would go to the
// standard error stream.
void dropError(void*, xmlErrorPtr) {}

}  // namespace

MemoryWatch::MemoryWatch() noexcept { memoryRanOut = false; }

bool MemoryWatch::ranOut() const noexcept { return memoryRanOut; }

void MemoryWatch::check() const {
    if (ranOut()) {
        // The library keeps the words of the failure for this thread, in blocks of the reserve.
        xmlResetLastError();
        throw std::bad_alloc();
    }
}

ScopedStop::ScopedStop(Stop stopOperation, void* operation) noexcept {
    stop = stopOperation;
    stopped = operation;
}

ScopedStop::~ScopedStop() { stop = nullptr; }

void noteExhaustion() noexcept { memoryRanOut = true; }

ScopedExternals::ScopedExternals(bool permitted) noexcept : _before(externalsPermitted) {
    externalsPermitted = permitted;
}

ScopedExternals::~ScopedExternals() { externalsPermitted = _before; }

void setReallocate(Reallocate reallocate) noexcept { source = reallocate; }

void install() {
    xmlMemSetup(&release, &allocate, &reallocate, &duplicate);
    xmlSetExternalEntityLoader(&openExternal);
    xmlSetStructuredErrorFunc(nullptr, &dropError);
    xmlThrDefSetStructuredErrorFunc(nullptr, &dropError);
}

}  // namespace windows::com::xml::hooks
