#pragma once

#include <string>
#include <vector>

#include "Context.h"

namespace CLI {
class App;
}

namespace halvern::morvane::client {

// A text and what people call it: its file, "text 2" for the second --text, "a.txt:17" for a line.
struct NamedText {
    std::string name;
    std::string bytes;
};

// The texts that a verb works on, as the command line names them.
class TextOptions {
public:
    // Declares the files, --text and --lines. This object must outlive the parsing.
    void declare(CLI::App& verb);

    // Reads them all, files before --text. Throws Failure: USAGE if none is named, LOCAL_FILE for a file that
    // can't be read.
    std::vector<NamedText> read(Context& context) const;

private:
    std::vector<std::string> _files;
    std::vector<std::string> _texts;
    bool _lines = false;
};

// The bytes of a file, or of standard input for "-". Throws Failure with LOCAL_FILE.
std::string readInput(const std::string& file, Context& context);

}  // namespace halvern::morvane::client
