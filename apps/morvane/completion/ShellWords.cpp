#include "completion/ShellWords.h"

#include <cstring>

namespace halvern::morvane::client {

ShellWords readShellWords(const std::string& line) {
    ShellWords result;
    std::string word;
    bool isInWord = false;
    char quote = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote == 0 && (c == ' ' || c == '\t' || c == '\n')) {
            if (isInWord) {
                result.words.push_back(word);
            }
            word.clear();
            result.rawLast.clear();
            isInWord = false;
            continue;
        }
        isInWord = true;
        result.rawLast += c;
        if (c == '\\' && quote != '\'' && i + 1 < line.size()) {
            const char next = line[++i];
            result.rawLast += next;
            // Between double quotes, only these lose their meaning (POSIX, 2.2.3).
            if (quote == '"' && std::strchr("$`\"\\", next) == nullptr) {
                word += c;
            }
            word += next;
        } else if (quote == 0 && (c == '"' || c == '\'')) {
            quote = c;
        } else if (c == quote) {
            quote = 0;
        } else {
            word += c;
        }
    }
    result.words.push_back(word);
    result.endsInQuotes = quote != 0;
    return result;
}

std::string shellQuoted(const std::string& word) {
    std::string quoted;
    for (const char c : word) {
        if (std::strchr(" \t!\"#$&'()*,;<>?[\\]^`{|}~", c) != nullptr && c != 0) {
            quoted += '\\';
        }
        quoted += c;
    }
    return quoted;
}

}  // namespace halvern::morvane::client
