#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace halvern::morvane::client {

// What can stand at the end of a command line that isn't finished.
struct Suggestions {
    struct Word {
        std::string text;
        std::string description = {};  // may be empty; one line
    };
    std::vector<Word> words;
    bool files = false;  // names of files can, too; the shell knows them best
};

// The names that are no part of the program. Both may be slow, and neither throws.
class LiveNames {
public:
    virtual ~LiveNames() = default;

    // server: as --server has it, or empty.
    virtual std::vector<std::string> classifiers(const std::string& server) = 0;
    virtual std::vector<std::string> classes(const std::string& server, const std::string& classifier) = 0;
};

// Reads the words behind the program's name as app would, and tells what can stand in the place of the last
// one, whatever is there of it already: verbs, options, values, names. The last word may be empty.
Suggestions complete(const CLI::App& app, const std::vector<std::string>& words, LiveNames& names);

}  // namespace halvern::morvane::client
