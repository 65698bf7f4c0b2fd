#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace util::parser {

// Checks a command line against declared flags and keeps the arguments of each.
//
// A word that starts with '-' is a flag, and its name is the whole word; any other word is an argument of the
// latest flag. All failures are exceptions::IllegalArgumentException; after a failed parse the content is of
// no use.
class ArgumentParser {
public:
    ArgumentParser() = default;
    virtual ~ArgumentParser() = default;

    // Declares a flag; to be called before parse. Throws if the flag is declared already or maxArguments is
    // below minArguments.
    void addFlag(const std::string& name, std::uint32_t minArguments, std::uint32_t maxArguments,
                 bool optional);

    // Parses count zero-terminated words. Throws for a line that the declared flags don't allow.
    void parse(std::uint32_t count, const char* const* argv);

    // Whether the parsed line held the flag.
    bool hasFlag(const std::string& name) const;

    // The argument of a parsed flag. Throws if the flag was not parsed or doesn't hold exactly one argument.
    const std::string& getArgument(const std::string& name) const;

private:
    struct FlagRule {
        std::uint32_t minArguments;
        std::uint32_t maxArguments;
        bool optional;
    };

    void collect(const std::vector<std::string>& words);
    void checkRules() const;

    char _flagCharacter = '-';
    std::map<std::string, std::vector<std::string>> _parsed;
    std::map<std::string, FlagRule> _rules;
};

}  // namespace util::parser
