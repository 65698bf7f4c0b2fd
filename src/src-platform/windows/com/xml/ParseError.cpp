#include "windows/com/xml/ParseError.h"

#include <libxml/tree.h>

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "util/StringHelper.h"
#include "util/StringStream.h"
#include "windows/com/xml/Characters.h"
#include "windows/com/xml/LibraryHooks.h"
#include "windows/com/xml/SourceLines.h"
#include "windows/com/xml/Tree.h"

namespace windows::com::xml {

namespace {

std::string reasonOf(const char* message) {
    std::string_view reason(message);
    reason = reason.substr(0, reason.find_last_not_of('\n') + 1);
    try {
        return narrow(reason);
    } catch (const util::StringHelperException& e) {
        return std::string("N/A - ") + e.what();
    }
}

// For a reference that leads nowhere the validator tells no node, and a line that ends at sixteen bits; no
// line is better than a wrong one.
std::uint64_t lineOfInvalid(const xmlError& error) {
    if (error.node != nullptr) {
        return lineOf(static_cast<const xmlNode*>(error.node));
    }
    const bool known = error.line > 0 && error.line < std::numeric_limits<std::uint16_t>::max();
    return known ? static_cast<std::uint64_t>(error.line) : 0;
}

}  // namespace

ParseError::ParseError(std::int32_t code, std::uint64_t line, std::uint64_t column, std::string reason)
    : _isSet(true), _code(code), _line(line), _column(column), _reason(std::move(reason)) {}

void ParseError::keepFirst(const _xmlError& error) noexcept {
    if (_isSet || error.level < XML_ERR_ERROR) {
        return;
    }
    try {
        if (error.message != nullptr) {
            _reason = reasonOf(error.message);
        }
        _isSet = true;
        _code = error.code;
        if (error.domain == XML_FROM_SCHEMASV) {
            _line = lineOfInvalid(error);
        } else {
            _line = static_cast<std::uint64_t>(std::max(error.line, 0));
            // Only the parser says in int2 where in the line it stood.
            _column = static_cast<std::uint64_t>(std::max(error.int2, 0));
        }
    } catch (const std::bad_alloc&) {
        hooks::noteExhaustion();
    }
}

std::string ParseError::text(const SourceLines& source) const {
    if (!_isSet) {
        return "Could not get parse error object.";
    }
    util::StringStream<2048> text;
    text << "Error Code: " << _code << "\nLine: " << _line << "\nRow: " << _column;
    text << "\nDescription: " << _reason.value_or("N/A");
    text << "\nError line: " << source.line(_line).value_or("N/A") << "\n";
    return text.str();
}

}  // namespace windows::com::xml
