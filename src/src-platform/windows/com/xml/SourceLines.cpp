#include "windows/com/xml/SourceLines.h"

namespace windows::com::xml {

SourceLines::SourceLines(std::string_view source) {
    while (!source.empty()) {
        const std::size_t end = source.find('\n');
        _lines.append(source.substr(0, end).substr(0, maxLineLength));
        _lines.push_back('\n');
        source.remove_prefix(end == std::string_view::npos ? source.size() : end + 1);
    }
}

std::optional<std::string> SourceLines::line(std::uint64_t number) const {
    std::size_t start = 0;
    for (std::uint64_t current = 1; start < _lines.size(); ++current) {
        const std::size_t end = _lines.find('\n', start);
        if (current == number) {
            const bool hasReturn = end > start && _lines[end - 1] == '\r';
            return _lines.substr(start, end - start - (hasReturn ? 1 : 0));
        }
        start = end + 1;
    }
    return std::nullopt;
}

}  // namespace windows::com::xml
