#include "util/parser/ArgumentParser.h"

#include "debug/Assertion.h"
#include "exceptions/IllegalArgumentException.h"
#include "util/FixedStream.h"

namespace util::parser {

namespace {

template <class... Pieces>
[[noreturn]] void refuse(const Pieces&... pieces) {
    FixedStream<4096> message;
    (message << ... << pieces);
    throw exceptions::IllegalArgumentException(message.str());
}

}  // namespace

void ArgumentParser::addFlag(const std::string& name, std::uint32_t minArguments, std::uint32_t maxArguments,
                             bool optional) {
    if (_rules.contains(name)) {
        refuse("The flag ", name.c_str(), " has been previosly specified");
    }
    if (maxArguments < minArguments) {
        refuse("[max] must be bigger or equal to [min]");
    }
    _rules[name] = {minArguments, maxArguments, optional};
}

void ArgumentParser::parse(std::uint32_t count, const char* const* argv) {
    std::vector<std::string> words;
    for (std::uint32_t i = 0; i < count; ++i) {
        // NOLINTNEXTLINE(modernize-use-nullptr): the report shows the condition as it stands here
        CHECK(argv[i] != 0);
        words.emplace_back(argv[i]);
    }
    collect(words);
    checkRules();
}

bool ArgumentParser::hasFlag(const std::string& name) const { return _parsed.contains(name); }

const std::string& ArgumentParser::getArgument(const std::string& name) const {
    const auto parsed = _parsed.find(name);
    if (parsed == _parsed.end()) {
        refuse("The flag: ", name.c_str(), " was not parsed");
    }
    if (parsed->second.size() != 1) {
        refuse("The flag: ", name.c_str(), " has multiple arguments.");
    }
    return parsed->second.front();
}

void ArgumentParser::collect(const std::vector<std::string>& words) {
    std::string current;
    for (const std::string& word : words) {
        if (word.empty()) {
            refuse("The empty string is not a flag or an argument.");
        }
        if (word.front() != _flagCharacter) {
            if (current.empty()) {
                refuse("The argument line should start with a flag");
            }
            _parsed[current].push_back(word);
            continue;
        }
        if (!_rules.contains(word)) {
            refuse("The flag ", word.c_str(), " is not allowed");
        }
        if (_parsed.contains(word)) {
            refuse("The flag ", word.c_str(), " was used more than once.");
        }
        current = word;
        _parsed[current];
    }
}

void ArgumentParser::checkRules() const {
    for (const auto& [name, rule] : _rules) {
        const auto parsed = _parsed.find(name);
        if (parsed == _parsed.end()) {
            if (!rule.optional) {
                refuse("The non optional flag ", name.c_str(), " was not found.");
            }
            continue;
        }
        const std::size_t arguments = parsed->second.size();
        if (arguments < rule.minArguments) {
            refuse("Not enough arguments for the flag ", name.c_str(), ". ", rule.minArguments,
                   " is required.");
        }
        if (arguments > rule.maxArguments) {
            if (rule.maxArguments == 0) {
                refuse("No arguments for the flag ", name.c_str(), " are allowed");
            }
            refuse("Too many arguments for the flag ", name.c_str(), ". No more than ", rule.maxArguments,
                   " arguments allowed");
        }
    }
}

}  // namespace util::parser
