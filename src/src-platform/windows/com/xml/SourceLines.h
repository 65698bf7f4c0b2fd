#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace windows::com::xml {

// The lines of a source, kept for messages about it: of each line as much as a message can hold, so that a
// big text in the source isn't kept twice.
class SourceLines {
public:
    static constexpr std::size_t maxLineLength = 4096;

    SourceLines() = default;
    explicit SourceLines(std::string_view source);

    // The line of this number, counted from 1, without its line end; nothing if there is no such line.
    std::optional<std::string> line(std::uint64_t number) const;

private:
    std::string _lines;
};

}  // namespace windows::com::xml
