#include "windows/com/xml/MarkupLimits.h"

#include <libxml/xmlerror.h>

#include <algorithm>
#include <string>

namespace windows::com::xml {

namespace {

constexpr std::size_t npos = std::string_view::npos;

// Stands behind the next occurrence of end, or at the end of the source.
std::size_t skipPast(std::string_view source, std::size_t position, std::string_view end) {
    position = source.find(end, position);
    return position == npos ? source.size() : position + end.size();
}

struct Tag {
    std::size_t end;           // behind its '>'
    std::uint32_t attributes;  // counted by their quoted values
    bool closesItself;
};

Tag scanTag(std::string_view source, std::size_t position) {
    Tag tag{source.size(), 0, false};
    while (true) {
        position = source.find_first_of("\"'>", position);
        if (position == npos) {
            return tag;
        }
        if (source[position] == '>') {
            tag.end = position + 1;
            tag.closesItself = source[position - 1] == '/';
            return tag;
        }
        ++tag.attributes;
        position = source.find(source[position], position + 1);
        if (position == npos) {
            return tag;
        }
        ++position;
    }
}

ParseError refusal(std::string_view source, std::size_t position, std::string reason) {
    const std::string_view before = source.substr(0, position);
    const auto line = static_cast<std::uint64_t>(std::count(before.begin(), before.end(), '\n')) + 1;
    const std::size_t lineEnd = before.rfind('\n');
    const std::uint64_t column = lineEnd == npos ? position + 1 : position - lineEnd;
    return ParseError(XML_ERR_USER_STOP, line, column, std::move(reason));
}

}  // namespace

ParseError findForbiddenMarkup(std::string_view source) {
    std::uint32_t depth = 0;
    for (std::size_t position = source.find('<'); position != npos; position = source.find('<', position)) {
        const std::string_view rest = source.substr(position);
        if (rest.starts_with("<!--")) {
            position = skipPast(source, position + 4, "-->");
        } else if (rest.starts_with("<![CDATA[")) {
            position = skipPast(source, position + 9, "]]>");
        } else if (rest.starts_with("<?")) {
            position = skipPast(source, position + 2, "?>");
        } else if (rest.starts_with("<!DOCTYPE")) {
            return refusal(source, position, "A document type declaration is not allowed.");
        } else if (rest.starts_with("</")) {
            depth -= depth > 0 ? 1 : 0;
            position = skipPast(source, position, ">");
        } else {
            const Tag tag = scanTag(source, position + 1);
            if (tag.attributes > maxAttributes) {
                return refusal(source, position,
                               "A tag has more than " + std::to_string(maxAttributes) + " attributes.");
            }
            if (depth == maxDepth) {
                return refusal(
                    source, position,
                    "Elements stand in each other more than " + std::to_string(maxDepth) + " deep.");
            }
            depth += tag.closesItself ? 0 : 1;
            position = tag.end;
        }
    }
    return {};
}

}  // namespace windows::com::xml
