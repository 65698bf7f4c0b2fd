#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "exceptions/Exception.h"
#include "util/Numbers.h"

namespace stress {

// What may stand on a program's command line: its name, what it wants behind it, and who takes that.
struct Flag {
    std::string name;
    std::string value;  // as the usage shows it; empty if the flag stands alone
    std::function<void(const std::string&)> take;
};

inline Flag number(const char* name, const char* value, int& target, int least, int most) {
    return {name, value, [=, &target](const std::string& text) {
                target = static_cast<int>(util::toInteger(text, least, most));
            }};
}

inline Flag choice(const char* name, std::string& target, const std::vector<std::string>& choices) {
    std::string all;
    for (const std::string& each : choices) {
        all += (all.empty() ? "" : "|") + each;
    }
    return {name, all, [=, &target](const std::string& text) {
                if (std::find(choices.begin(), choices.end(), text) == choices.end()) {
                    throw std::invalid_argument("'" + text + "' is none of " + all + ".");
                }
                target = text;
            }};
}

inline Flag toggle(const char* name, bool& target) {
    return {name, "", [&target](const std::string&) { target = true; }};
}

inline void takeFlags(const std::vector<std::string>& words, const std::vector<Flag>& flags) {
    for (std::size_t i = 1; i < words.size(); ++i) {
        const auto flag =
            std::find_if(flags.begin(), flags.end(), [&](const Flag& f) { return f.name == words[i]; });
        if (flag == flags.end()) {
            throw std::invalid_argument("There is no flag '" + words[i] + "'.");
        }
        if (!flag->value.empty() && ++i == words.size()) {
            throw std::invalid_argument("'" + flag->name + "' wants " + flag->value + ".");
        }
        flag->take(words[i]);
    }
}

// What the operation returns, or the code once its failure has been printed.
template <class Operation>
int codeOf(Operation&& operation, int codeOfFailure) {
    try {
        return operation();
    } catch (const exceptions::Exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
    }
    return codeOfFailure;
}

// A whole main: the program's code, 1 if it fails with an exception, 2 for a command line that isn't right.
inline int runMain(int argc, char** argv, const std::vector<Flag>& flags, const std::function<int()>& run) {
    const std::vector<std::string> words(argv, argv + argc);
    constexpr int WRONG_USE = 2;
    const int code = codeOf(
        [&] {
            takeFlags(words, flags);
            return 0;
        },
        WRONG_USE);
    if (code == 0) {
        return codeOf(run, 1);
    }
    std::fprintf(stderr, "Usage: %s", words[0].substr(words[0].rfind('/') + 1).c_str());
    for (const Flag& flag : flags) {
        std::fprintf(stderr, " [%s%s%s]", flag.name.c_str(), flag.value.empty() ? "" : " ",
                     flag.value.c_str());
    }
    std::fprintf(stderr, "\n");
    return code;
}

}  // namespace stress
