#pragma once

#include <string>
#include <vector>

namespace halvern::morvane::client {

// A command line of bash, cut into words: blanks part them, quotes and backslashes are taken off. What is
// left open at the end is taken as if it were closed; nothing is expanded. The last word is empty if the line
// ends behind a blank.
struct ShellWords {
    std::vector<std::string> words;
    std::string rawLast;        // the last word as it stands in the line
    bool endsInQuotes = false;  // the last word has quotes that are still open
};

ShellWords readShellWords(const std::string& line);

// The word as bash has to read it to get these bytes. Requires no line ends and no zero bytes.
std::string shellQuoted(const std::string& word);

}  // namespace halvern::morvane::client
