#include "server/Log.h"

#include <new>

namespace halvern::morvane {

namespace {

template <class Operation>
void quietWithoutMemory(Operation operation) noexcept {
    try {
        operation();
    } catch (const std::bad_alloc&) {
        // There is no one left to tell, and the caller has more important things to do.
        return;
    }
}

}  // namespace

void Log::assertion(const char* expression, const char* description, const char* file,
                    std::uint32_t line) noexcept {
    quietWithoutMemory(
        [&] { assertion(std::string(expression), std::string(description), std::string(file), line); });
}

void Log::log(const char* text) noexcept {
    quietWithoutMemory([&] { log(std::string(text)); });
}

void Log::error(const char* text) noexcept {
    quietWithoutMemory([&] { error(std::string(text)); });
}

void Log::test(const char* text) noexcept {
    quietWithoutMemory([&] { test(std::string(text)); });
}

}  // namespace halvern::morvane
