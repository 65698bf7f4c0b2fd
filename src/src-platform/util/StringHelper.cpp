#include "util/StringHelper.h"

#include <algorithm>
#include <random>

#include "debug/Assertion.h"

namespace util {

std::string StringHelper::toLower(std::string_view text) {
    std::string lower(text);
    for (char& character : lower) {
        // By hand, since tolower would follow the locale.
        if (character >= 'A' && character <= 'Z') {
            character = static_cast<char>(character - 'A' + 'a');
        }
    }
    return lower;
}

std::size_t StringHelper::replaceAll(std::string& text, const std::string& search,
                                     const std::string& replaceWith) {
    if (search.empty()) {
        return 0;
    }
    const std::size_t searchForLen = search.size();
    std::string result;
    std::size_t replacements = 0;
    std::size_t rest = 0;
    for (std::size_t match; (match = text.find(search, rest)) != std::string::npos; ++replacements) {
        const std::size_t oldSize = result.size() + text.size() - rest;
        result.append(text, rest, match - rest).append(replaceWith);
        rest = match + searchForLen;
        const std::size_t newSize = result.size() + text.size() - rest;
        CHECK(newSize == oldSize + replaceWith.size() - searchForLen);
    }
    result.append(text, rest);
    text.swap(result);
    return replacements;
}

std::string StringHelper::narrow(const std::wstring& wide) {
    std::string bytes;
    for (const wchar_t character : wide) {
        if (character == 0) {
            break;
        }
        if (character < 0 || character > 0xFF) {
            throw StringHelperException("Could not get the length of the wide string.");
        }
        bytes += static_cast<char>(character);
    }
    return bytes;
}

std::string StringHelper::directoryOf(const std::string& path) {
    std::string directory = path;
    std::erase(directory, '"');
    // The position behind the last slash; npos + 1 is 0, which leaves nothing.
    directory.resize(directory.rfind('/') + 1);
    return directory;
}

std::string StringHelper::randomBytes(std::size_t length) {
    thread_local std::minstd_rand generator;
    std::string bytes(length, '\0');
    std::generate(bytes.begin(), bytes.end(), [] { return static_cast<char>((generator() & 0xFF) + 128); });
    return bytes;
}

}  // namespace util
