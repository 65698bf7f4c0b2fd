#pragma once

#include <string>
#include <vector>

#include "Context.h"

namespace CLI {
class App;
}

namespace halvern::morvane::client {

// The work behind the files in completion/, which call "morvane complete SHELL ...":
//
//     bash LINE WORD   the command line up to the cursor, and the part of it that bash is going to replace
//     zsh WORD...      the words behind the program's name up to the cursor, without quotes
//     fish WORD...     likewise
//
// The first line of the answer is "files" if the shell shall offer its files, else "words"; each line behind
// it is a word, and for zsh and fish a tab and its description. Whatever fails, fails in silence, and soon.
void runComplete(const CLI::App& app, Context& context, const std::vector<std::string>& arguments);

// Keeps the names of classifiers with which the verb just done has worked, for the next completion.
void rememberNames(const CLI::App& app, Context& context);

}  // namespace halvern::morvane::client
