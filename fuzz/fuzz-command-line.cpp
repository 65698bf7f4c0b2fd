// The command line: the words of an input stand on a line each.
#include <vector>

#include "Target.h"
#include "exceptions/IllegalArgumentException.h"
#include "server/CommandLine.h"

using halvern::morvane::Mode;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> words = {"morvaneserver", ""};
    for (const char character : fuzz::textOf(data, size)) {
        if (character == '\n') {
            words.emplace_back();
        } else if (character != '\0') {  // no word of a command line can hold one
            words.back() += character;
        }
    }
    std::vector<const char*> argv;
    for (const std::string& word : words) {
        argv.push_back(word.c_str());
    }
    const Mode mode = halvern::morvane::modeOf(static_cast<int>(argv.size()), argv.data());
    util::parser::ArgumentParser parser;
    halvern::morvane::declareFlags(mode, parser);
    try {
        parser.parse(static_cast<std::uint32_t>(argv.size() - 1), argv.data() + 1);
    } catch (const exceptions::IllegalArgumentException& refusal) {
        PROMISE(refusal.what()[0] != '\0');
        return 0;
    }
    // What is accepted can be acted on: nothing but the flags of the mode, each with what it needs.
    const bool wantsConfiguration = mode != Mode::UNINSTALL && mode != Mode::START && mode != Mode::STOP;
    PROMISE(parser.hasFlag("-config") == wantsConfiguration);
    if (wantsConfiguration) {
        const std::string& path = parser.getArgument("-config");
        PROMISE(!path.empty() && path.front() != '-');
    }
    const std::size_t modeFlags = mode == Mode::SERVE ? 0 : 1;
    PROMISE(words.size() - 1 ==
            (wantsConfiguration ? 2 : 0) + (parser.hasFlag("-quiet") ? 1 : 0) + modeFlags);
    return 0;
}
