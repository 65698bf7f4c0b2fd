#include "verbs/TextOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <istream>
#include <iterator>
#include <memory>
#include <system_error>

#include "Failure.h"

namespace halvern::morvane::client {

namespace {

// Each line is a text, an empty one too, so that results can be told by their number. A line may end in CR
// LF.
void addLines(const NamedText& whole, std::vector<NamedText>& texts) {
    std::size_t number = 0;
    for (std::size_t begin = 0; begin < whole.bytes.size();) {
        const std::size_t end = std::min(whole.bytes.find('\n', begin), whole.bytes.size());
        const bool hasReturn = end > begin && whole.bytes[end - 1] == '\r';
        texts.push_back({whole.name + ":" + std::to_string(++number),
                         whole.bytes.substr(begin, end - begin - (hasReturn ? 1 : 0))});
        begin = end + 1;
    }
}

}  // namespace

std::string readInput(const std::string& file, Context& context) {
    if (file == "-") {
        std::string bytes(std::istreambuf_iterator<char>(context.in()), {});
        if (context.in().bad()) {
            throw Failure{ExitCode::LOCAL_FILE, "Standard input can't be read."};
        }
        return bytes;
    }
    // Not a file stream: it wouldn't tell why it fails.
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> opened(std::fopen(file.c_str(), "rbe"),
                                                                 std::fclose);
    std::string bytes;
    char buffer[64 * 1024];
    while (opened != nullptr) {
        const std::size_t count = std::fread(buffer, 1, sizeof(buffer), opened.get());
        bytes.append(buffer, count);
        if (count < sizeof(buffer)) {
            break;
        }
    }
    if (opened == nullptr || std::ferror(opened.get()) != 0) {
        throw Failure{ExitCode::LOCAL_FILE, "The file '" + file + "' can't be read: " +
                                                std::generic_category().message(errno) + "."};
    }
    return bytes;
}

void TextOptions::declare(CLI::App& verb) {
    verb.add_option("FILE", _files, "Files with a text each; - is standard input")->type_name("");
    verb.add_option("-t,--text", _texts, "A text itself; may stand several times")
        ->type_name("TEXT")
        ->allow_extra_args(false);
    verb.add_flag("-l,--lines", _lines, "Each line of the files is a text");
}

std::vector<NamedText> TextOptions::read(Context& context) const {
    if (_files.empty() && _texts.empty()) {
        throw Failure{ExitCode::USAGE, "There is no text to work on.",
                      "Name files, give --text \"...\", or - for standard input."};
    }
    if (std::count(_files.begin(), _files.end(), "-") > 1) {
        throw Failure{ExitCode::USAGE, "Standard input (-) can be read only once."};
    }
    std::vector<NamedText> texts;
    for (const std::string& file : _files) {
        NamedText text{file, readInput(file, context)};
        if (_lines) {
            addLines(text, texts);
        } else {
            texts.push_back(std::move(text));
        }
    }
    for (std::size_t i = 0; i < _texts.size(); ++i) {
        texts.push_back({_texts.size() == 1 ? "text" : "text " + std::to_string(i + 1), _texts[i]});
    }
    if (texts.empty()) {
        throw Failure{ExitCode::USAGE, "There is no line in the files named, and so no text to work on."};
    }
    return texts;
}

}  // namespace halvern::morvane::client
