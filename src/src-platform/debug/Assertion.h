#pragma once

#include <cstddef>
#include <cstdint>

namespace debug {

// The check facility: reports a broken promise between our own units and ends the process.
//
// Writes a report to standard output and to "assertion.txt" in the current directory, then aborts.
// description may be null. Nothing that arrives from a client or a file may ever lead here: that is what
// exceptions are for.
[[noreturn]] void assertion(const char* expression, const char* description, const char* file,
                            std::uint32_t line) noexcept;

// The name under which a report shows a source unit: its path below the include root, without the extension.
class UnitName {
public:
    constexpr explicit UnitName(const char* path) {
        std::size_t length = 0;
        std::size_t end = 0;
        for (; path[length] != 0 && length < sizeof(_name) - 1; ++length) {
            _name[length] = path[length];
            if (path[length] == '.') {
                end = length;
            } else if (path[length] == '/') {
                end = 0;
            }
        }
        _name[end != 0 ? end : length] = 0;
    }

    constexpr const char* c_str() const { return _name; }

private:
    char _name[256] = {};
};

}  // namespace debug

#define MORVANE_CHECK_WITH(condition, description)                                                      \
    do {                                                                                                \
        if (!(condition)) [[unlikely]] {                                                                \
            ::debug::assertion(#condition, description, ::debug::UnitName(__FILE__).c_str(), __LINE__); \
        }                                                                                               \
    } while (false)
#define MORVANE_CHECK_PLAIN(condition) MORVANE_CHECK_WITH(condition, nullptr)
#define MORVANE_CHECK_PICK(first, second, name, ...) name

// CHECK(condition) or CHECK(condition, "description"): what must hold unless this program itself is wrong.
#define CHECK(...) \
    MORVANE_CHECK_PICK(__VA_ARGS__, MORVANE_CHECK_WITH, MORVANE_CHECK_PLAIN, unused)(__VA_ARGS__)
