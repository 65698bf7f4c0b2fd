#pragma once

#include <cstddef>
#include <functional>
#include <memory_resource>

namespace halvern::classifier {

// Memory in the object itself for what comes first, and from the heap for what no longer fits. Unlike the
// monotonic resource of the standard library it gives back what has been outgrown, which with a text of many
// megabytes is half of all.
template <std::size_t Size>
class NearMemory final : public std::pmr::memory_resource {
private:
    void* do_allocate(std::size_t bytes, std::size_t alignment) override {
        const std::size_t begin = (_used + alignment - 1) / alignment * alignment;
        if (alignment > alignof(std::max_align_t) || begin > Size || bytes > Size - begin) {
            return std::pmr::new_delete_resource()->allocate(bytes, alignment);
        }
        _used = begin + bytes;
        return _bytes + begin;
    }
    void do_deallocate(void* block, std::size_t bytes, std::size_t alignment) override {
        const std::byte* const first = static_cast<const std::byte*>(block);
        const std::less<const std::byte*> isBefore;
        if (isBefore(first, _bytes) || !isBefore(first, _bytes + Size)) {
            std::pmr::new_delete_resource()->deallocate(block, bytes, alignment);
        }
    }
    bool do_is_equal(const memory_resource& other) const noexcept override { return this == &other; }

    std::size_t _used = 0;
    alignas(std::max_align_t) std::byte _bytes[Size];
};

}  // namespace halvern::classifier
