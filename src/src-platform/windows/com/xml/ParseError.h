#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "windows/com/xml/LibraryTypes.h"

namespace windows::com::xml {

class SourceLines;

// Why a document could not be read or is not valid: the first of the faults that the library found.
class ParseError {
public:
    // There is no more to tell than that it failed.
    ParseError() = default;

    // column is counted from 1; line and column are 0 where there is none.
    ParseError(std::int32_t code, std::uint64_t line, std::uint64_t column, std::string reason);

    bool isSet() const { return _isSet; }

    // Takes over an error of the library unless one stands here already or it is a warning. Never throws, so
    // that it can be called from within the library.
    void keepFirst(const _xmlError& error) noexcept;

    // Five lines: code, line, position in the line, reason, and the line of the source.
    std::string text(const SourceLines& source) const;

private:
    bool _isSet = false;
    std::int32_t _code = 0;
    std::uint64_t _line = 0;
    std::uint64_t _column = 0;
    std::optional<std::string> _reason;  // in bytes
};

}  // namespace windows::com::xml
