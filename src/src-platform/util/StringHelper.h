#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "exceptions/Exception.h"

namespace util {

// A text could not be converted.
class StringHelperException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

// Operations on byte strings. Nothing here follows the locale.
class StringHelper {
public:
    // Folds A to Z; all other bytes stay.
    static std::string toLower(std::string_view text);

    // Replaces search by replaceWith from left to right and returns the number of replacements. What has been
    // put in is not searched again. An empty search string is found nowhere.
    static std::size_t replaceAll(std::string& text, const std::string& search,
                                  const std::string& replaceWith);

    // Turns each character up to U+00FF into the byte of that number; a zero character ends the text. Throws
    // StringHelperException for any other character.
    static std::string narrow(const std::wstring& wide);

    // The path without its double quotes, up to and including its last slash; empty if there is no slash.
    static std::string directoryOf(const std::string& path);

    // Bytes for tests. Each thread has its own generator with a fixed start, so that a run can be repeated.
    static std::string randomBytes(std::size_t length);
};

}  // namespace util
